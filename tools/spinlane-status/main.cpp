// spinlane-status: the live status of the Spinlane that runs on this session bus, for a terminal
// or a watchdog script.

#include "core/CommandLine.h"
#include "core/Conversions.h"
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
#include <QDateTime>
#include <QHash>

using namespace Qt::StringLiterals;
using namespace spinlane;
using namespace spinlane::console;

namespace {

enum ExitCode { Success = 0, Failure = 1, Usage = 2, NotRunning = 3 };

const char kUsage[] = "usage: spinlane-status [--queue | --watch] [--user ID]\n"
                      "\n"
                      "(none)     the run state and the current item\n"
                      "--queue    the whole queue as a table, with each item's expected start\n"
                      "           and end\n"
                      "--watch    the run state, then one line for each change as it happens,\n"
                      "           until Spinlane ends\n"
                      "--user ID  only the items of user ID (case aside); alone, as --queue\n"
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

struct Expected {
    QString start;
    QString end;
};

// The forecast by queue number, and whether its times are as if the run started now.
QHash<int, Expected> expectedTimes(bool& ifStartedNow)
{
    QHash<int, Expected> times;
    ifStartedNow = false;
    const auto shown = [](const QString& iso) {
        if (iso.isEmpty())
            return u"?"_s;
        // The rule the web page shares: the nearest minute, the locale's 12 or 24 hours.
        const QString shown = clockTime(QDateTime::fromString(iso, Qt::ISODate), QLocale::system(),
                                        QDate::currentDate());
        return shown.isEmpty() ? u"?"_s : shown;
    };
    // The likely time, then the range it falls in four times in five when that says more.
    const auto ranged = [&](const QVariantMap& item, const QString& likely, const QString& earliest,
                            const QString& latest) {
        const QString time = shown(item.value(likely).toString());
        const QString low = shown(item.value(earliest).toString());
        const QString high = shown(item.value(latest).toString());
        if (time == u"?"_s || low == u"?"_s || high == u"?"_s || (low == time && high == time))
            return time;
        return time + u" ("_s + low + u'-' + high + u')';
    };
    for (const QVariantMap& item : argumentAs<QList<QVariantMap>>(
             callSpinlane(kStatusInterface, u"Forecast"_s).arguments().first())) {
        times.insert(item.value(u"QueueNumber"_s).toInt(),
                     {ranged(item, u"ExpectedStart"_s, u"EarliestStart"_s, u"LatestStart"_s),
                      item.value(u"LongerThanAnyRun"_s).toBool()
                          ? u"longer than any past run"_s
                          : ranged(item, u"ExpectedEnd"_s, u"EarliestEnd"_s, u"LatestEnd"_s)});
        ifStartedNow = item.value(u"IfStartedNow"_s).toBool();
    }
    return times;
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
        bool ifStartedNow = false;
        const QHash<int, Expected> expected = expectedTimes(ifStartedNow);
        if (expected.contains(number) && !ifStartedNow)
            rows.push_back({u"Expected end:"_s, expected.value(number).end});
    }
    out() << textTable(rows);
    return Success;
}

// The queue with each item's expected start and end ("?" when unknown, nothing for an item the
// next run skips); only `user`'s items when one is given.
int printQueue(const QString& user)
{
    std::vector<QStringList> rows{{u"No."_s, u"Item S/N"_s, u"Sample Pos."_s, u"Sample Name"_s,
                                   u"Experiment Title"_s, u"User ID"_s, u"Status"_s,
                                   u"Expected Start"_s, u"Expected End"_s}};
    bool ifStartedNow = false;
    const QHash<int, Expected> expected = expectedTimes(ifStartedNow);
    for (QStringList row : argumentAs<QList<QStringList>>(
             callSpinlane(kStatusInterface, u"Queue"_s).arguments().first())) {
        if (!user.isNull() && row.value(5).compare(user, Qt::CaseInsensitive) != 0)
            continue;
        const Expected times = expected.value(row.value(0).toInt());
        rows.push_back(row << times.start << times.end);
    }
    out() << textTable(rows);
    if (ifStartedNow)
        out() << "No run goes on: the times are as if it were started now.\n";
    return Success;
}

// Prints every change that Spinlane signals, one line each.
class Watcher : public QObject {
    Q_OBJECT
public:
    QString user; // only this user's items, when not null
public Q_SLOTS:
    void itemStatusChanged(int queueNumber, const QString& sampleName, const QString& user,
                           const QString& status)
    {
        if (!this->user.isNull() && user.compare(this->user, Qt::CaseInsensitive) != 0)
            return;
        out() << stamped(QString::number(queueNumber).rightJustified(3, u'0') + u' ' + sampleName
                         + u" ("_s + user + u"): "_s + status)
              << Qt::endl;
    }
    void runStateChanged(const QString& state) { out() << stamped(u"run: "_s + state) << Qt::endl; }
};

int watch(const QString& user)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    Watcher watcher;
    watcher.user = user;
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

int run(QStringList args)
{
    QString user; // null unless --user is given
    if (const qsizetype at = args.indexOf(u"--user"_s); at >= 0) {
        if (at + 1 >= args.size()) {
            err() << kUsage;
            return Usage;
        }
        user = args.at(at + 1);
        if (user.isNull())
            user = u""_s;
        args.remove(at, 2);
    }
    QString option = args.value(0);
    if (args.size() > 1 || (!args.isEmpty() && option != u"--queue"_s && option != u"--watch"_s)) {
        err() << kUsage;
        return Usage;
    }
    if (option.isEmpty() && !user.isNull())
        option = u"--queue"_s;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(spinlaneBusName())) {
        err() << "spinlane-status: Spinlane is not running (nobody owns " << spinlaneBusName()
              << (bus.isConnected() ? " on the session bus)" : "; there is no session bus)")
              << Qt::endl;
        return NotRunning;
    }
    qDBusRegisterMetaType<QList<QStringList>>();
    qDBusRegisterMetaType<QList<QVariantMap>>();
    if (option == u"--queue"_s)
        return printQueue(user);
    return option == u"--watch"_s ? watch(user) : printStatus();
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
