#pragma once

#include <QByteArrayView>
#include <QDateTime>
#include <QString>

#include <optional>

namespace spinlane {

// How the run handles samples: not at all, experiments only, or with the sample changer.
enum class RunMode : quint8 { None, Experiments, Changer };

// "none", "experiments" or "changer", as the history and the ledger write it, and back.
const char* runModeName(RunMode mode);
std::optional<RunMode> runModeFromName(QByteArrayView name);

// How one item the run took up went: what the forecast learns from.
struct RunRecord {
    QDateTime takenUp; // when the item went "In progress" (UTC)
    QDateTime ended; // when its outcome was recorded (UTC)
    QString outcome; // "Done", "Failed" or "Stopped"
    RunMode mode = RunMode::None;
    bool loaded = false;
    bool ejected = false;
    // Seconds each part took, its fixed waits included. Handling is load + spin + eject.
    double loadSeconds = 0;
    double spinSeconds = 0;
    double ejectSeconds = 0;
    double experimentSeconds = 0;
    QString title;
    QString solvent; // empty in the records of the history's first format, which did not keep it

    double handlingSeconds() const { return loadSeconds + spinSeconds + ejectSeconds; }
    bool operator==(const RunRecord& o) const;
};

// Whether `outcome` is one a record can have.
bool isRunOutcome(const QString& outcome);

// Seconds from `from` to `to`, never negative.
double secondsBetween(const QDateTime& from, const QDateTime& to);

} // namespace spinlane
