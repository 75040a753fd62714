#include "app/Main.h"
#include "app/LaboratoryBackend.h"
#include "core/CommandLine.h"
#include "core/RuntimeError.h"
#include "core/Seams.h"
#include "core/SystemSeams.h"
#include "ui/desktop/DesktopSeams.h"

#include <QApplication>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

const char kUsage[] =
    "Usage: spinlane [nowindow]\n"
    "\n"
    "Runs the NMR spectrometer's sample queue unattended. The queue and the settings are in\n"
    "Spinlane.INI in the console's configuration folder (/korvo/config); the lab's programs are\n"
    "reached over the session bus, and the spectrometer console program must be running.\n"
    "Nothing on the command line changes what Spinlane does: the word nowindow is accepted, for\n"
    "old shortcuts, and everything else is ignored.\n"
    "\n"
    "  -h, --help     shows this text\n"
    "  -v, --version  shows the version\n";

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered =
            answerHelpOrVersion(argc, argv, u"spinlane"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QApplication app(argc, argv);
    QApplication::setApplicationName(programTitle());
    QApplication::setDesktopFileName(QStringLiteral("spinlane"));

    static WidgetMessageBoxes messageBoxes;
    static WidgetFileDialogs fileDialogs;
    static QSettingsStore settingsStore;
    static SystemClock clock;
    static QtEventPump eventPump;
    static ProcessExit programEnd;
    static SystemDesktopPrograms desktopPrograms;
    installSeams({&messageBoxes, &fileDialogs, &settingsStore, &clock, &eventPump, &programEnd,
                  &desktopPrograms});
    installLaboratoryBackend();

    CloseOnShutdownSignals();
    bool started = false;
    guarded([&] {
        Main(QApplication::arguments().mid(1));
        started = true;
    });
    return started ? QApplication::exec() : 0;
}
