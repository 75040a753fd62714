#include "app/Main.h"
#include "app/LaboratoryBackend.h"
#include "app/RuntimeError.h"
#include "app/Seams.h"
#include "app/SystemSeams.h"
#include "app/desktop/DesktopSeams.h"

#include <QApplication>

using namespace spinlane;

int main(int argc, char* argv[])
{
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
