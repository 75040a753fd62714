#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The simulated laboratory's settings: one INI file, named by the environment variable
// SPINLANE_SIM_SETTINGS, read by every simulator when it starts. A missing file or key gives the
// defaults, a short demonstration lab; README.md lists the keys.
namespace spinlane::sim {

// A call that makes the program misbehave: the n-th call (from 1) of the operation.
struct CallTrigger {
    QString operation;
    int call = 0; // 0: never

    bool matches(const QString& op, int count) const
    {
        return call > 0 && op == operation && count == call;
    }
};

// What a program does wrong, section [Console], [Expedra], [Changer] or [Tubelink].
struct Misbehaviour {
    CallTrigger crash; // Crash=Operation:n — killed on that call, without answering
    CallTrigger hang; // Hang=Operation:n — stops answering on that call
    double hangSeconds = 30; // HangSeconds — then it ends
    bool broken = false; // Broken — ends at start-up, before it takes its bus name
};

// Section [Experiment 1], [Experiment 2], ...
struct Experiment {
    QString title; // Title
    QString details; // Details
    bool lockRequired = true; // LockRequired
    bool spin = true; // Spin
    double spinRate = 20; // SpinRate, hertz
    double seconds = 20; // Duration
};

struct SimSettings {
    QString callLogPath; // [General] CallLog: every simulator appends the calls it receives

    Misbehaviour console;
    Misbehaviour expedra;
    Misbehaviour changer;
    Misbehaviour tubelink;

    QList<Experiment> experiments;
    QStringList solvents; // [Expedra] Solvents, separated by commas
    QList<int> failingRuns; // [Expedra] FailRuns: runs (1 = the first RunExperiment) that fail

    // [Changer]
    int positions = 24; // Positions in the carousel
    double loadSeconds = 8; // LoadSeconds
    double ejectSeconds = 6; // EjectSeconds
    double spinRampHzPerSecond = 5; // SpinRamp
    double readySeconds = 3; // ReadySeconds: IsReady answers false until then
    QList<int> failingLoads; // FailLoads: positions whose load fails
    QList<int> failingEjects; // FailEjects: positions whose eject fails

    // The file's settings over the defaults; a value that cannot be read is reported on
    // standard error and left at its default.
    static SimSettings load(const QString& path);
};

} // namespace spinlane::sim
