#pragma once

#include "adapter/AdapterSetup.h"
#include "adapter/Outcome.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QHash>

#include <deque>

namespace spinlane::adapter {

class Helper;

// One laboratory program served from its section: on a bus connection of its own (so that it has
// a process-like unique name that goes away with it) it owns the program's bus name and serves
// its interface and the window interface at "/", exactly as runner/LabInterfaces describes them.
// Its calls are carried out one at a time in the order they arrive; each is answered when its
// command or helper is done, while the event loop serves the other programs.
class ProgramServer : public QDBusVirtualObject {
    Q_OBJECT
public:
    ProgramServer(const ProgramSetup& setup, const QString& folder, QObject* parent = nullptr);
    ~ProgramServer() override;

    const QString& className() const { return m_setup.className; }
    // Starts the helper, then takes the bus name. False, with `error` set, when either fails.
    bool start(QString* error);
    bool isConnected() const { return m_bus.isConnected(); }

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

Q_SIGNALS:
    // The helper ended: every call waiting has failed and the bus name is gone.
    void lost(const QString& why);

private:
    struct Call {
        QDBusMessage message;
        const OperationSetup* setup;
    };

    void serveNext();
    void carryOut(const Call& call);
    void answer(const Call& call, const Outcome& outcome);
    QString placeholderValue(const Call& call, const QString& name) const;
    void release(const QString& why);

    ProgramSetup m_setup;
    QString m_folder;
    QDBusConnection m_bus;
    Helper* m_helper = nullptr;
    std::deque<Call> m_calls;
    bool m_busy = false; // a command or the helper is carrying out a call
    bool m_released = false;
    QHash<QString, QVariant> m_stored; // what the setters were given, by LabOperation::stores
};

} // namespace spinlane::adapter
