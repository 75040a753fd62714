#pragma once

#include "adapter/CommandTemplate.h"
#include "runner/LabInterfaces.h"

#include <QList>
#include <QStringList>
#include <QVariant>

#include <optional>

// The adapter's configuration file: one section per automation class it serves, one key per
// operation saying how the operation is carried out, read with Spinlane's profile-file engine.
namespace spinlane::adapter {

// How long a command or the helper may take for one call unless the section's Timeout= says
// otherwise: well inside the 10 seconds after which Spinlane gives up on a call.
inline constexpr int kDefaultTimeoutMs = 5000;
inline constexpr int kLongestTimeoutMs = 10000; // a timeout must stay below it
inline constexpr int kShortestTimeoutMs = 100;

enum class Service {
    Run, // run: a command per call
    Helper, // the section's helper process
    Store, // only keeps the value for later placeholders
    Const, // a fixed answer
    Nothing, // a window operation left out
};

struct OperationSetup {
    const LabOperation* operation = nullptr;
    Service service = Service::Nothing;
    QString written; // the value as written, for --check
    std::optional<CommandTemplate> command; // Run, its program found
    QVariant answer; // Const, when the operation answers
};

struct ProgramSetup {
    QString className;
    const LabInterface* interface = nullptr;
    int line = 0; // of the section's header
    int timeoutMs = kDefaultTimeoutMs;
    std::optional<CommandTemplate> helper;
    QList<OperationSetup> operations; // the class's own, then the window's

    // The operation a call names; an empty interface name matches either interface.
    const OperationSetup* find(const QString& interfaceName, const QString& member) const;
};

struct AdapterSetup {
    QString folder; // the file's folder: commands run there, and relative programs are found there
    QList<ProgramSetup> programs;
};

// Reads and checks the file. Every mistake adds one line to `errors`: "FILE:LINE: KEY: what is
// wrong" ("FILE: what is wrong" for the file as a whole).
AdapterSetup readAdapterSetup(const QString& path, QStringList* errors);

// How each operation of each program is served, for `spinlane-adapter --check`.
QString describeSetup(const AdapterSetup& setup);

} // namespace spinlane::adapter
