#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// Every operation of the laboratory programs' D-Bus interfaces (the rule is in runner/LabBus.h):
// the one description that the simulators, Spinlane's D-Bus backend and spinlane-adapter follow.
namespace spinlane {

struct LabOperation {
    QString name;
    QStringList inputs; // one D-Bus signature per argument: "b", "i", "n", "d", "s" or "as"
    QString output; // the answer's signature; empty for none
    // The name under which the first argument stays known to later calls ("OutputFile").
    QString stores;
    // Only the program's window: a program may do nothing for it (and report a handle of 0).
    bool windowOnly = false;
    // The set-up program's lists end with one empty element that is not part of the list.
    bool endsWithEmptyElement = false;
    // The arguments' names as introspection shows them; empty: the name it stores.
    QStringList inputNames;

    QString inputSignature() const { return inputs.join(QString()); }
    QString inputName(qsizetype index) const;
    QString outputName() const; // "Ready" for IsReady, "SpinRate" for GetSpinRate
};

struct LabInterface {
    QString name; // the D-Bus interface name
    QList<LabOperation> operations;

    const LabOperation* operation(QStringView name) const;
};

// The four automation classes Spinlane drives, in the order they are set up: the console, the
// set-up program, the single-sample interface, the sample changer.
const QStringList& labClasses();
// The interface of an automation class; nullptr for a class Spinlane does not drive.
const LabInterface* labInterface(QStringView className);
// org.spinlane.lab.Window, which every program offers beside its own interface.
const LabInterface& labWindowInterface();

// The <interface> elements of the program's introspection data: its own and the window's.
QString labIntrospection(const LabInterface& interface);

} // namespace spinlane
