#pragma once

#include <QDBusConnection>

// Spinlane on the session bus, from start-up to the end of the program: the name of its own
// automation class, the status of the run at kStatusPath, and the alerts.
namespace spinlane {

// Call once the single-instance check has passed. Without a bus nothing is published, said once
// on standard error; a name another process owns is left to it, said on standard error, and the
// status and the alerts go on all the same.
void PublishOnBus(const QDBusConnection& bus = QDBusConnection::sessionBus());
// Releases the name and takes the objects off the bus.
void WithdrawFromBus();

} // namespace spinlane
