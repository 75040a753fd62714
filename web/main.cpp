// spinlane-web: a read-only web page, API, live channel and metrics for the Spinlane that runs
// on this session bus, for people who are not at the instrument.

#include "core/CommandLine.h"
#include "core/Console.h"
#include "core/ShutdownSignals.h"
#include "web/FacilityServer.h"
#include "web/ManagerAccounts.h"
#include "web/WebServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>

#include <termios.h>
#include <unistd.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;
using namespace spinlane::web;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2 };

const char kUsage[] =
    "usage: spinlane-web [--config FILE] [--listen ADDRESS:PORT] [--facility]\n"
    "       spinlane-web [--config FILE] --set-manager NAME | --remove-manager NAME\n"
    "\n"
    "Serves the queue of the Spinlane that runs on this session bus to browsers:\n"
    "the page at /, the API at /api/v1/instrument, live updates at /api/v1/live,\n"
    "/metrics for Prometheus and /healthz. With a [broker] in the configuration file\n"
    "it also publishes the instrument's state there for the facility page.\n"
    "\n"
    "In facility mode (Mode=facility in [web], or --facility) it serves every\n"
    "instrument the broker carries instead: the page at /, the API at\n"
    "/api/v1/facility, live updates at /api/v1/live, /metrics and /healthz; and,\n"
    "for the facility's managers only, the instruments' usage at /usage.\n"
    "\n"
    "--set-manager NAME reads a password from standard input (twice from a terminal)\n"
    "and lets NAME log in to the usage page; --remove-manager NAME no longer does.\n"
    "Both write the managers file (Managers= in [web], default\n"
    "~/.config/spinlane/web-managers).\n"
    "\n"
    "--config FILE          the configuration file (default ~/.config/spinlane/web.conf)\n"
    "--listen ADDRESS:PORT  where to listen (default 127.0.0.1:8470); 0.0.0.0:8470 for\n"
    "                       every network of the machine\n"
    "--facility             facility mode, whatever the configuration file says\n"
    "--help | --version\n";

QString shownAddress(const WebSettings& settings, quint16 port)
{
    return (settings.certificate.isNull() ? u"http://"_s : u"https://"_s)
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

// A line from standard input; from a terminal, asked for and not shown.
std::optional<QByteArray> readPassword(const char* prompt)
{
    const bool terminal = isatty(STDIN_FILENO);
    termios shown{};
    if (terminal) {
        err() << prompt << Qt::flush;
        tcgetattr(STDIN_FILENO, &shown);
        termios hidden = shown;
        hidden.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    char line[1024];
    const bool read = std::fgets(line, sizeof line, stdin) != nullptr;
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
        err() << Qt::endl;
    }
    if (!read)
        return std::nullopt;
    QByteArray password(line);
    while (password.endsWith('\n') || password.endsWith('\r'))
        password.chop(1);
    return password;
}

int setManager(const QString& managers, const QString& name, bool remove)
{
    if (!isManagerName(name)) {
        err() << "spinlane-web: " << name
              << ": a manager's name is 1 to 64 letters, digits, '.', '_', '@' or '-'" << Qt::endl;
        return Usage;
    }
    QByteArray hash;
    if (!remove) {
        const std::optional<QByteArray> password = readPassword("Password: ");
        if (!password || password->size() < 8) {
            err() << "spinlane-web: a manager's password has at least 8 characters" << Qt::endl;
            return Usage;
        }
        if (isatty(STDIN_FILENO) && readPassword("Again: ") != password) {
            err() << "spinlane-web: the two passwords differ" << Qt::endl;
            return Usage;
        }
        hash = hashPassword(*password);
        if (hash.isEmpty()) {
            err() << "spinlane-web: the system's crypt cannot make a yescrypt hash" << Qt::endl;
            return Failure;
        }
    }
    QString error;
    if (!writeManager(managers, name, hash, &error)) {
        err() << "spinlane-web: " << error << Qt::endl;
        return Failure;
    }
    err() << "spinlane-web: " << name << (remove ? " can no longer" : " can now")
          << " log in to the usage page (" << managers << ')' << Qt::endl;
    return Success;
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
    const QCommandLineOption setManagerOption(u"set-manager"_s, {}, u"NAME"_s);
    const QCommandLineOption removeManagerOption(u"remove-manager"_s, {}, u"NAME"_s);
    parser.addOptions({config, listen, facilityMode, setManagerOption, removeManagerOption});
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
    if (parser.isSet(setManagerOption) || parser.isSet(removeManagerOption)) {
        const bool remove = parser.isSet(removeManagerOption);
        return setManager(settings->managersFile,
                          parser.value(remove ? removeManagerOption : setManagerOption), remove);
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
