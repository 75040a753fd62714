#pragma once

#include "runner/LabBus.h"

#include <QString>

// Where Spinlane itself is found on the session bus. By the rule of the laboratory programs it
// owns the bus name of its automation class, which has no members; the live status of the queue
// is served beside it, read-only.
namespace spinlane {

inline const QString kSpinlaneClass = QStringLiteral("Spinlane.clsBrelixSpinlane");
inline const QString kStatusPath = QStringLiteral("/status");
inline const QString kStatusInterface = QStringLiteral("org.spinlane.Spinlane.Status");

inline QString spinlaneBusName() { return labBusName(kSpinlaneClass); }

} // namespace spinlane
