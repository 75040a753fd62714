#include "core/ProgramSettings.h"

#include "core/Startup.h"

using namespace Qt::StringLiterals;

namespace spinlane {

float gFormTop = 0;
float gFormLeft = 0;
QString gIniPath;
QString gIniVersion;
bool gAlwaysOnTop = false;
bool gExpQueueOnly = false;
QString gAdminPassword;
qint16 gSampleControl = 0;
qint16 gQueueLayout = 0;
qint32 gTotalQueueItems = 0;
QString gLogFile;

QString defaultSettingsPath() { return korvoPath(u"config/Spinlane.INI"_s); }

void resetSettingsState()
{
    gFormTop = gFormLeft = 0;
    gIniPath.clear();
    gIniVersion.clear();
    gAlwaysOnTop = gExpQueueOnly = false;
    gAdminPassword.clear();
    gSampleControl = gQueueLayout = 0;
    gTotalQueueItems = 0;
    gLogFile.clear();
}

} // namespace spinlane
