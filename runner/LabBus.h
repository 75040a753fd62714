#pragma once

#include <QString>

// How the laboratory programs meet on the D-Bus session bus. Automation class "A.B" is served by
// the program that owns the well-known bus name "org.spinlane.lab.A.B": at object path "/" it
// offers interface "org.spinlane.lab.A.B", one method per operation of the class with the
// operation's name (results are return values; in/out arguments are plain inputs). The same
// object offers interface "org.spinlane.lab.Window" for the window handles the program reports:
// ShowWindow(handle, command) with 0 hide and 5 show, and CloseWindow(handle), which minimises.
namespace spinlane {

inline const QString kLabBusPrefix = QStringLiteral("org.spinlane.lab.");
inline const QString kLabObjectPath = QStringLiteral("/");
inline const QString kLabWindowInterface = QStringLiteral("org.spinlane.lab.Window");

// The bus name, which is also the interface name, of an automation class.
inline QString labBusName(const QString& className) { return kLabBusPrefix + className; }

} // namespace spinlane
