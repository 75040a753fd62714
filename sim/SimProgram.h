#pragma once

#include "sim/SimSettings.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusContext>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QWidget>

namespace spinlane::sim {

// What every simulated program shares: its bus name, the record of the calls it receives, the
// misbehaviour its settings ask for, and its main window with the window commands for the handle
// it reports. The operations are the public slots of the subclasses, exported on the bus.
class SimProgram : public QObject, public QDBusContext {
    Q_OBJECT
public:
    // `recordName` starts every line of the call record ("Expedra.RunExperiment()").
    SimProgram(const QString& className, const QString& recordName,
               const Misbehaviour& misbehaviour, const QString& callLogPath);

    const QString& busName() const { return m_busName; }
    const Misbehaviour& misbehaviour() const { return m_misbehaviour; }
    qint32 windowHandle() const; // the process id: unique among the lab's programs
    void setWindow(QWidget* window) { m_window = window; }
    QWidget* window() const { return m_window; }
    double secondsSinceStart() const { return m_started.elapsed() / 1000.0; }

    // Registers the object, then takes the bus name. False when another program holds the name.
    bool publish(QDBusConnection bus);

    void showWindow(qint32 handle, int command); // 0 hide, 5 show
    void minimiseWindow(qint32 handle);

Q_SIGNALS:
    void changed(); // something the window shows has changed

protected:
    // Every operation starts here: the call is recorded (a query repeated without anything in
    // between once), then the program crashes or hangs when its settings say so.
    void received(const QString& operation, const QString& arguments = {});
    // Answers the call being served with an error.
    void refuse(const QString& text);
    // Lets go of the bus name, answers the call and ends the program.
    void quit();
    // True shows the window and brings it forward, false hides it.
    void setWindowShown(bool shown);

private:
    void record(const QString& line, bool query);

    QString m_busName;
    QString m_recordName;
    Misbehaviour m_misbehaviour;
    QFile m_callLog;
    QString m_lastLine;
    QHash<QString, int> m_callCounts;
    QPointer<QWidget> m_window;
    QElapsedTimer m_started;
};

// The window commands, interface org.spinlane.lab.Window beside the program's own.
class WindowAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.spinlane.lab.Window")
public:
    explicit WindowAdaptor(SimProgram* program);

public Q_SLOTS:
    void ShowWindow(int handle, int command);
    void CloseWindow(int handle);

private:
    SimProgram* m_program;
};

// Arguments as the call record writes them.
QString recordText(bool value);
QString recordText(double value);
QString recordText(const QStringList& values); // joined by "|", line breaks as "\r\n"

} // namespace spinlane::sim
