// spinlane-status: the live status of the Spinlane that runs on this session bus, for a terminal
// or a watchdog script.

#include "core/CommandLine.h"
#include "core/TextTable.h"
#include "status/StatusBus.h"
#include "core/Console.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusServiceWatcher>
#include <QTime>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2, NotRunning = 3 };

const char kUsage[] = "usage: spinlane-status [--queue | --watch]\n"
                      "\n"
                      "(none)   the run state and the current item\n"
                      "--queue  the whole queue as a table\n"
                      "--watch  the run state, then one line for each change as it happens,\n"
                      "         until Spinlane ends\n"
                      "--help | --version\n";

constexpr int kCallTimeoutMs = 5000;

// A failed call, or an answer of another shape, is an error that ends the tool.
struct CallFailed {
    QString message;
};

QDBusMessage callSpinlane(const QString& interface, const QString& method,
                          const QVariantList& arguments = {})
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(spinlaneBusName(), kStatusPath, interface, method);
    call.setArguments(arguments);
    const QDBusMessage answer =
        QDBusConnection::sessionBus().call(call, QDBus::Block, kCallTimeoutMs);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().size() != 1)
        throw CallFailed{method + u": "_s + answer.errorMessage()};
    return answer;
}

template <typename T> T argumentAs(const QVariant& value) { return qdbus_cast<T>(value); }

QVariantMap properties()
{
    return argumentAs<QVariantMap>(
        callSpinlane(u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s, {kStatusInterface})
            .arguments()
            .first());
}

QString stamped(const QString& line)
{
    return QTime::currentTime().toString(u"HH:mm:ss"_s) + u' ' + line;
}

int printStatus()
{
    const QVariantMap status = properties();
    const QVariantMap item = argumentAs<QVariantMap>(status.value(u"CurrentItem"_s));
    std::vector<QStringList> rows{{u"Run state:"_s, status.value(u"RunState"_s).toString()}};
    const int number = item.value(u"QueueNumber"_s).toInt();
    const QString count = status.value(u"ItemCount"_s).toString();
    if (number == 0) {
        rows.push_back({u"Item:"_s, u"none, of "_s + count});
    } else {
        rows.push_back(
            {u"Item:"_s, QString::number(number).rightJustified(3, u'0') + u" of "_s + count});
        rows.push_back({u"Sample:"_s, item.value(u"SamplePosition"_s).toString() + u"  "_s
                                          + item.value(u"SampleName"_s).toString()});
        const std::pair<QString, QString> fields[] = {{u"Experiment:"_s, u"Experiment"_s},
                                                      {u"User:"_s, u"User"_s},
                                                      {u"Data file:"_s, u"DataFile"_s},
                                                      {u"Status:"_s, u"Status"_s},
                                                      {u"Started:"_s, u"Started"_s}};
        for (const auto& [label, key] : fields)
            rows.push_back({label, item.value(key).toString()});
    }
    out() << textTable(rows);
    return Success;
}

int printQueue()
{
    std::vector<QStringList> rows{{u"No."_s, u"Item S/N"_s, u"Sample Pos."_s, u"Sample Name"_s,
                                   u"Experiment Title"_s, u"User ID"_s, u"Status"_s}};
    for (const QStringList& row : argumentAs<QList<QStringList>>(
             callSpinlane(kStatusInterface, u"Queue"_s).arguments().first()))
        rows.push_back(row);
    out() << textTable(rows);
    return Success;
}

// Prints every change that Spinlane signals, one line each.
class Watcher : public QObject {
    Q_OBJECT
public Q_SLOTS:
    void itemStatusChanged(int queueNumber, const QString& sampleName, const QString& user,
                           const QString& status)
    {
        out() << stamped(QString::number(queueNumber).rightJustified(3, u'0') + u' ' + sampleName
                         + u" ("_s + user + u"): "_s + status)
              << Qt::endl;
    }
    void runStateChanged(const QString& state) { out() << stamped(u"run: "_s + state) << Qt::endl; }
};

int watch()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    Watcher watcher;
    const QString name = spinlaneBusName();
    bus.connect(name, kStatusPath, kStatusInterface, u"ItemStatusChanged"_s, &watcher,
                SLOT(itemStatusChanged(int, QString, QString, QString)));
    bus.connect(name, kStatusPath, kStatusInterface, u"RunStateChanged"_s, &watcher,
                SLOT(runStateChanged(QString)));
    QDBusServiceWatcher ended(name, bus, QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&ended, &QDBusServiceWatcher::serviceUnregistered, [] {
        out() << stamped(u"Spinlane has ended"_s) << Qt::endl;
        QCoreApplication::exit(NotRunning);
    });
    // Signed up before asking, so no change falls between the state printed and the first line.
    watcher.runStateChanged(properties().value(u"RunState"_s).toString());
    return QCoreApplication::exec();
}

int run(const QStringList& args)
{
    const QString option = args.value(0);
    if (args.size() > 1 || (!args.isEmpty() && option != u"--queue"_s && option != u"--watch"_s)) {
        err() << kUsage;
        return Usage;
    }
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(spinlaneBusName())) {
        err() << "spinlane-status: Spinlane is not running (nobody owns " << spinlaneBusName()
              << (bus.isConnected() ? " on the session bus)" : "; there is no session bus)")
              << Qt::endl;
        return NotRunning;
    }
    qDBusRegisterMetaType<QList<QStringList>>();
    if (option == u"--queue"_s)
        return printQueue();
    return option == u"--watch"_s ? watch() : printStatus();
}

} // namespace

int main(int argc, char* argv[])
{
    if (const std::optional<int> answered =
            answerHelpOrVersion(argc, argv, u"spinlane-status"_s, QString::fromUtf8(kUsage)))
        return *answered;
    QCoreApplication app(argc, argv);
    try {
        return run(QCoreApplication::arguments().mid(1));
    } catch (const CallFailed& failure) {
        err() << "spinlane-status: Spinlane did not answer: " << failure.message << Qt::endl;
        return Failure;
    }
}

#include "main.moc"
