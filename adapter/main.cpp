// spinlane-adapter: serves the laboratory programs' D-Bus interfaces from the commands a lab
// administrator configures, so that Spinlane drives the lab's own tools.

#include "adapter/AdapterSetup.h"
#include "adapter/ProgramServer.h"
#include "core/CommandLine.h"
#include "core/Console.h"
#include "core/ShutdownSignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::adapter;
using namespace spinlane::console;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

const char kUsage[] = "usage: spinlane-adapter [--check] --config FILE\n"
                      "\n"
                      "--config FILE  serve the laboratory programs as FILE says\n"
                      "--check        only check FILE and list how each operation is served\n"
                      "--help | --version\n";

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered =
            answerHelpOrVersion(argc, argv, u"spinlane-adapter"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption config(u"config"_s, {}, u"FILE"_s);
    const QCommandLineOption check(u"check"_s);
    parser.addOptions({config, check});
    if (!parser.parse(app.arguments()) || !parser.isSet(config)
        || !parser.positionalArguments().isEmpty()) {
        err() << kUsage;
        return Usage;
    }

    QStringList errors;
    const AdapterSetup setup = readAdapterSetup(parser.value(config), &errors);
    if (!errors.isEmpty()) {
        for (const QString& error : std::as_const(errors))
            err() << error << '\n';
        err().flush();
        return Usage;
    }
    if (parser.isSet(check)) {
        out() << describeSetup(setup);
        return Success;
    }

    std::vector<std::unique_ptr<ProgramServer>> servers;
    QStringList served;
    for (const ProgramSetup& program : setup.programs) {
        auto& server = servers.emplace_back(std::make_unique<ProgramServer>(program, setup.folder));
        QString error;
        if (!server->start(&error)) {
            err() << "spinlane-adapter: " << program.className << ": " << error << Qt::endl;
            return Failure;
        }
        served.append(program.className);
        QObject::connect(server.get(), &ProgramServer::lost, &app, [&servers] {
            for (const auto& s : servers) {
                if (s->isConnected())
                    return;
            }
            err() << "spinlane-adapter: no program left to serve" << Qt::endl;
            QCoreApplication::exit(Failure);
        });
    }
    err() << "spinlane-adapter: serving " << served.join(u", "_s) << Qt::endl;

    ShutdownSignals signals;
    QObject::connect(&signals, &ShutdownSignals::received, &app, [] { QCoreApplication::quit(); });
    // The adapter lives as long as its bus.
    QTimer busWatch;
    QObject::connect(&busWatch, &QTimer::timeout, &app, [&servers] {
        for (const auto& s : servers) {
            if (s->isConnected())
                return;
        }
        QCoreApplication::exit(Success);
    });
    busWatch.start(1000);
    return QCoreApplication::exec();
}
