#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QStringList>
#include <QVariantMap>

// The bus faces of Spinlane's objects. They only pass on what RunStatus knows; nothing on them
// changes the queue.
namespace spinlane {

class RunStatus;

// The automation class: registered, with no members.
class SpinlaneClassAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.spinlane.lab.Spinlane.clsBrelixSpinlane")
    // Without it the bus's description of the object would leave out an interface that has no
    // members.
    Q_CLASSINFO("D-Bus Introspection",
                "  <interface name=\"org.spinlane.lab.Spinlane.clsBrelixSpinlane\"/>\n")
public:
    explicit SpinlaneClassAdaptor(QObject* object)
        : QDBusAbstractAdaptor(object)
    {
    }
};

class StatusAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.spinlane.Spinlane.Status")
    Q_PROPERTY(QString RunState READ runState)
    Q_PROPERTY(int CurrentQueueNumber READ currentQueueNumber)
    Q_PROPERTY(int ItemCount READ itemCount)
    Q_PROPERTY(QVariantMap CurrentItem READ currentItem)
    Q_PROPERTY(QString LedgerProblem READ ledgerProblem)
public:
    // `object` is the one served at the status path of `bus`.
    StatusAdaptor(QObject* object, const RunStatus& status, const QDBusConnection& bus);

    QString runState() const;
    int currentQueueNumber() const;
    int itemCount() const;
    QVariantMap currentItem() const;
    QString ledgerProblem() const;

public Q_SLOTS:
    // Every item's columns as the list shows them, in queue order (output arguments, so that
    // introspection names them).
    void Queue(QList<QStringList>& items) const;
    // Every item the next run takes up, in queue order: QueueNumber, ExpectedStart, ExpectedEnd,
    // ExpectedSeconds, Basis, Runs and IfStartedNow.
    void Forecast(QList<QVariantMap>& forecast) const;

Q_SIGNALS:
    void ItemStatusChanged(int queueNumber, const QString& sampleName, const QString& user,
                           const QString& status);
    void RunStateChanged(const QString& runState);
    void QueueChanged();

private:
    void sendPropertiesChanged(const QStringList& names);

    const RunStatus& m_status;
    QDBusConnection m_bus;
};

} // namespace spinlane
