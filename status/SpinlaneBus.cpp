#include "status/SpinlaneBus.h"

#include "status/Alerts.h"
#include "status/RunStatus.h"
#include "status/StatusAdaptor.h"
#include "status/StatusBus.h"

#include <QDBusConnectionInterface>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace spinlane {
namespace {

struct Presence {
    explicit Presence(const QDBusConnection& connection)
        : bus(connection)
        , alerts(status, connection)
    {
        new SpinlaneClassAdaptor(&classObject);
        new StatusAdaptor(&statusObject, status, bus);
        bus.registerObject(kLabObjectPath, &classObject, QDBusConnection::ExportAdaptors);
        bus.registerObject(kStatusPath, &statusObject, QDBusConnection::ExportAdaptors);
        const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
            bus.interface()->registerService(spinlaneBusName(),
                                             QDBusConnectionInterface::DontQueueService,
                                             QDBusConnectionInterface::DontAllowReplacement);
        ownsName = reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
        if (!ownsName)
            qWarning("Spinlane: the bus name %s is taken by another program; Spinlane goes on "
                     "without it",
                     qPrintable(spinlaneBusName()));
    }

    ~Presence()
    {
        if (ownsName)
            bus.interface()->unregisterService(spinlaneBusName());
        bus.unregisterObject(kStatusPath);
        bus.unregisterObject(kLabObjectPath);
    }

    QDBusConnection bus;
    RunStatus status;
    QObject classObject;
    QObject statusObject;
    Alerts alerts;
    bool ownsName = false;
};

std::unique_ptr<Presence>& presence()
{
    static std::unique_ptr<Presence> current;
    return current;
}

} // namespace

void PublishOnBus(const QDBusConnection& bus)
{
    WithdrawFromBus();
    if (bus.isConnected()) {
        presence() = std::make_unique<Presence>(bus);
        return;
    }
    static bool told = false;
    if (!std::exchange(told, true))
        qWarning("Spinlane: there is no session bus; Spinlane goes on without its bus name, "
                 "status and alerts");
}

void WithdrawFromBus() { presence().reset(); }

} // namespace spinlane
