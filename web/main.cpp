// spinlane-web: a read-only web page, API, live channel and metrics for the Spinlane that runs
// on this session bus, for people who are not at the instrument.

#include "core/CommandLine.h"
#include "core/Console.h"
#include "core/ShutdownSignals.h"
#include "web/FacilityServer.h"
#include "web/WebServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;
using namespace spinlane::web;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

const char kUsage[] =
    "usage: spinlane-web [--config FILE] [--listen ADDRESS:PORT] [--facility]\n"
    "\n"
    "Serves the queue of the Spinlane that runs on this session bus to browsers:\n"
    "the page at /, the API at /api/v1/instrument, live updates at /api/v1/live,\n"
    "/metrics for Prometheus and /healthz. With a [broker] in the configuration file\n"
    "it also publishes the instrument's state there for the facility page.\n"
    "\n"
    "In facility mode (Mode=facility in [web], or --facility) it serves every\n"
    "instrument the broker carries instead: the page at /, the API at\n"
    "/api/v1/facility, live updates at /api/v1/live, /metrics and /healthz.\n"
    "\n"
    "--config FILE          the configuration file (default ~/.config/spinlane/web.conf)\n"
    "--listen ADDRESS:PORT  where to listen (default 127.0.0.1:8470); 0.0.0.0:8470 for\n"
    "                       every network of the machine\n"
    "--facility             facility mode, whatever the configuration file says\n"
    "--help | --version\n";

QString shownAddress(const WebSettings& settings, quint16 port)
{
    return u"http://"_s
           + (settings.address.protocol() == QAbstractSocket::IPv6Protocol
                  ? u'[' + settings.address.toString() + u']'
                  : settings.address.toString())
           + u':' + QString::number(port) + u'/';
}

// Said once at start: on every interface, anyone who reaches the port sees the queue.
void warnIfOpen(const WebSettings& settings, quint16 port)
{
    const QHostAddress& address = settings.address;
    if (address != QHostAddress::Any && address != QHostAddress::AnyIPv4
        && address != QHostAddress::AnyIPv6)
        return;
    err() << "spinlane-web: listening on every network of this machine: anyone who reaches port "
          << port << " sees the queue; --listen 127.0.0.1:" << port
          << " (or Listen= with one address) narrows it" << Qt::endl;
}

int serveFacility(const WebSettings& settings, const QString& path)
{
    if (!settings.broker.isSet()) {
        err() << "spinlane-web: " << path
              << ": the facility needs a broker: its Host in [broker]" << Qt::endl;
        return Usage;
    }
    FacilityServer server(settings);
    QString error;
    if (!server.listen(&error)) {
        err() << "spinlane-web: cannot listen on " << settings.address.toString() << ':'
              << settings.port << ": " << error << Qt::endl;
        return Usage;
    }
    warnIfOpen(settings, server.port());
    err() << "spinlane-web: serving the facility of " << settings.broker.address() << " at "
          << shownAddress(settings, server.port()) << Qt::endl;
    ShutdownSignals signals;
    QObject::connect(&signals, &ShutdownSignals::received, qApp, [] { QCoreApplication::quit(); });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    if (const auto answered =
            answerHelpOrVersion(argc, argv, u"spinlane-web"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"spinlane-web"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(SPINLANE_VERSION));
    QCommandLineParser parser;
    const QCommandLineOption config(u"config"_s, {}, u"FILE"_s);
    const QCommandLineOption listen(u"listen"_s, {}, u"ADDRESS:PORT"_s);
    const QCommandLineOption facilityMode(u"facility"_s, {});
    parser.addOptions({config, listen, facilityMode});
    if (!parser.parse(app.arguments()) || !parser.positionalArguments().isEmpty()) {
        err() << "spinlane-web: " << (parser.errorText().isEmpty() ? u"unexpected argument"_s
                                                                   : parser.errorText())
              << '\n'
              << kUsage;
        return Usage;
    }

    QString error;
    const QString path = parser.isSet(config) ? parser.value(config) : defaultConfigPath();
    std::optional<WebSettings> settings = readWebSettings(path, &error);
    if (!settings) {
        err() << "spinlane-web: " << error << Qt::endl;
        return Usage;
    }
    if (parser.isSet(listen)
        && !parseListen(parser.value(listen), &settings->address, &settings->port)) {
        err() << "spinlane-web: --listen " << parser.value(listen)
              << ": not ADDRESS:PORT (for example 127.0.0.1:8470)" << Qt::endl;
        return Usage;
    }
    if (parser.isSet(facilityMode))
        settings->mode = WebSettings::Mode::Facility;
    if (settings->mode == WebSettings::Mode::Facility)
        return serveFacility(*settings, path);

    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        err() << "spinlane-web: there is no session bus" << Qt::endl;
        return Failure;
    }

    WebServer server(*settings, bus);
    if (!server.listen(&error)) {
        err() << "spinlane-web: cannot listen on " << settings->address.toString() << ':'
              << settings->port << ": " << error << Qt::endl;
        return Usage;
    }
    warnIfOpen(*settings, server.port());
    err() << "spinlane-web: serving " << settings->instrument << " at "
          << shownAddress(*settings, server.port()) << Qt::endl;

    ShutdownSignals signals;
    QObject::connect(&signals, &ShutdownSignals::received, &app, [] { QCoreApplication::quit(); });
    return QCoreApplication::exec();
}
