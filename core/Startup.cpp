#include "core/Startup.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace spinlane {

bool gStarting = false;
QString gExeVersion;
QString gProgramDrive;
bool gShowWindow = true;

QString programVersion() { return QStringLiteral(SPINLANE_VERSION); }

QString korvoPath(const QString& relativePath)
{
#ifdef Q_OS_WIN
    return QDir::toNativeSeparators(gProgramDrive.left(1) + u":/korvo/"_s + relativePath);
#else
    return QDir(gProgramDrive.isEmpty() ? u"/"_s : gProgramDrive)
        .filePath(u"korvo/"_s + relativePath);
#endif
}

void resetStartupState()
{
    gStarting = false;
    gExeVersion = programVersion();
#ifdef Q_OS_WIN
    gProgramDrive = u"C"_s;
#else
    gProgramDrive = u"/"_s;
#endif
    gShowWindow = true;
}

} // namespace spinlane
