// One simulated laboratory program, chosen by the first argument: console, expedra, changer or
// tubelink. It takes its bus name, shows its window and serves until it is told to quit or the
// bus goes away. The bus starts it through the .service files the build generates.

#include "core/CommandLine.h"
#include "runner/LabBus.h"
#include "runner/Programs.h"
#include "sim/ChangerWindow.h"
#include "sim/ExpedraWindow.h"
#include "sim/NoticeWindow.h"
#include "sim/SimExpedra.h"
#include "sim/SimSampleChanger.h"
#include "sim/SimTubelink.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::sim;

namespace {

struct Program {
    std::unique_ptr<SimProgram> program;
    std::unique_ptr<QWidget> window;
};

Program makeProgram(const QString& role, const SimSettings& settings)
{
    if (role == u"expedra"_s) {
        auto expedra = std::make_unique<SimExpedra>(settings);
        auto window = std::make_unique<ExpedraWindow>(*expedra);
        return {std::move(expedra), std::move(window)};
    }
    if (role == u"changer"_s) {
        auto changer = std::make_unique<SimSampleChanger>(settings);
        auto window = std::make_unique<ChangerWindow>(*changer);
        return {std::move(changer), std::move(window)};
    }
    if (role == u"tubelink"_s)
        return {std::make_unique<SimTubelink>(settings),
                std::make_unique<NoticeWindow>(u"Tubelink (simulated)"_s,
                                               u"Single-sample interface\nready"_s)};
    if (role == u"console"_s)
        return {std::make_unique<SimProgram>(kConsoleClass, u"Console"_s, settings.console,
                                             settings.callLogPath),
                std::make_unique<NoticeWindow>(u"Korvo console (simulated)"_s,
                                               u"Spectrometer console\nready"_s)};
    return {};
}

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered = answerHelpOrVersion(
            argc, argv, u"spinlane-labsim"_s,
            u"usage: spinlane-labsim console|expedra|changer|tubelink\n"
            "One simulated laboratory program; spinlane-simulated-lab has the bus start it.\n"_s))
        return *answered;
    QApplication app(argc, argv);
    const QString role = app.arguments().value(1);
    const SimSettings settings = SimSettings::load(qEnvironmentVariable("SPINLANE_SIM_SETTINGS"));
    Program lab = makeProgram(role, settings);
    if (!lab.program) {
        std::fprintf(stderr, "usage: spinlane-labsim console|expedra|changer|tubelink\n");
        return 2;
    }
    if (lab.program->misbehaviour().broken) {
        std::fprintf(stderr, "spinlane-labsim %s: broken by its settings\n", qPrintable(role));
        return 3;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    lab.program->setWindow(lab.window.get());
    if (!bus.isConnected() || !lab.program->publish(bus)) {
        std::fprintf(stderr, "spinlane-labsim %s: cannot take %s on the session bus\n",
                     qPrintable(role), qPrintable(lab.program->busName()));
        return 1;
    }
    lab.window->show();

    // The lab lives as long as its bus.
    QTimer busWatch;
    QObject::connect(&busWatch, &QTimer::timeout, &app, [] {
        if (!QDBusConnection::sessionBus().isConnected())
            QCoreApplication::exit(0);
    });
    busWatch.start(1000);
    return app.exec();
}
