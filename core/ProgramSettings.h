#pragma once

#include <QString>

// The program's settings as every room reads them. The settings room loads them from the
// settings file and the per-user store at start-up and writes them back when the window closes.
namespace spinlane {

extern float gFormTop; // main window's top edge, twips
extern float gFormLeft; // main window's left edge, twips
extern QString gIniPath;
extern QString gIniVersion; // "Version Number" as the file held it at start-up
extern bool gAlwaysOnTop;
extern bool gExpQueueOnly;
extern QString gAdminPassword; // only ever read: set by editing the file
extern qint16 gSampleControl; // 1 single-sample interface, 2 sample changer, else none
extern qint16 gQueueLayout; // 1 list view, 2 tree view
extern qint32 gTotalQueueItems;
extern QString gLogFile;

QString defaultSettingsPath();
void resetSettingsState();

} // namespace spinlane
