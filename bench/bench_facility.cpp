// The facility page under load, through a real mosquitto on a loopback port:
//
//     build/bench/bench_facility [--largest] [SECONDS]
//
// For 5, 20 and 50 instruments with 999-item queues, lightweight publishers in this process
// replay a recorded state, each instrument changing once a second (its time stamp; in a run of
// 50, its queue too), to one spinlane-web in facility mode (its own process). A last run (alone
// with --largest) has one instrument sending the largest state the facility takes, a new queue
// every second. A live client here measures the time from a change being published to the first
// live message that carries it (median and 95th percentile); /healthz is asked ten times a second
// meanwhile (median and worst answer time); the facility's processor share (of one core) over the
// same time and its memory come from /proc; then the facility API's answer time is that of ten
// whole GET requests while the changes go on. Prints the figures side by side.

#include "core/ProfileFile.h"
#include "facility/MqttClient.h"
#include "facility/StatePayload.h"
#include "facility/Topics.h"
#include "support/MosquittoBroker.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>
#include <QWebSocket>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

using namespace spinlane;
using namespace spinlane::facility;

namespace {

constexpr int kItems = 999;
const QByteArray kStamp = "2026-11-25T10:00:00.000Z";

void waitFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

template <typename Condition>
bool waitUntil(Condition condition, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        waitFor(10);
    }
    return true;
}

// The largest state the facility takes: as many items as it allows, each sample name and
// experiment as long as a text may be (the experiment leaves room for the digits a change adds).
QByteArray largestState(const QString& name)
{
    QByteArray state = testing::recordedState(name, QStringLiteral("running"), kMaxQueueItems,
                                              QString::fromLatin1(kStamp));
    state.replace("\"PROTON\"", "\"PROTON" + QByteArray(kMaxTextLength - 9, 'x') + '"');
    static const QByteArray sample = "\"sample\":\"";
    for (qsizetype at = state.indexOf(sample); at >= 0; at = state.indexOf(sample, at)) {
        at += sample.size();
        const qsizetype end = state.indexOf('"', at);
        state.insert(end, QByteArray(kMaxTextLength - (end - at), 'x'));
    }
    return state;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5))];
}

// utime + stime of a process, in seconds.
double processorSeconds(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray stat = file.readAll();
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toDouble() + fields.value(12).toDouble()) / double(sysconf(_SC_CLK_TCK));
}

// VmRSS or VmHWM in MB.
double memoryMB(qint64 pid, const char* field)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression line(QString::fromLatin1(field) + QStringLiteral(":\\s+(\\d+)"));
    return line.match(QString::fromLatin1(file.readAll())).captured(1).toDouble() / 1024;
}

struct Figures {
    int instruments = 0;
    bool queueChanges = false; // every change a new queue, not only a new time stamp
    bool largest = false; // the largest state the facility takes, not a 999-item one
    qint64 stateBytes = 0;
    std::vector<double> latencyMs;
    std::vector<double> healthMs;
    int published = 0;
    double cpuShare = -1;
    double rssMB = -1;
    double peakMB = -1;
    std::vector<double> apiMs;
    std::vector<double> summaryMs;
    qint64 apiBytes = 0;
    double rejected = -1; // states the facility refused: 0, or the figures are not of this load
};

double getMs(QNetworkAccessManager& network, const QUrl& url, qint64* bytes)
{
    QElapsedTimer clock;
    clock.start();
    std::unique_ptr<QNetworkReply> reply(network.get(QNetworkRequest(url)));
    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    loop.exec();
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    *bytes = reply->readAll().size();
    return reply->error() == QNetworkReply::NoError ? ms : -1;
}

Figures run(const QString& web, int instruments, int seconds, bool queueChanges, bool largest = false)
{
    Figures figures;
    figures.instruments = instruments;
    figures.queueChanges = queueChanges;
    figures.largest = largest;
    testing::MosquittoBroker broker;
    broker.addUser(QStringLiteral("bench"), QStringLiteral("bench-pw"));
    if (!broker.start()) {
        std::fprintf(stderr, "mosquitto did not start:\n%s\n", qPrintable(broker.log()));
        return figures;
    }
    const BrokerSettings settings = broker.settings(QStringLiteral("bench"), QStringLiteral("bench-pw"));

    // The publishers, one connection per instrument, each with its recorded state.
    std::vector<std::unique_ptr<MqttClient>> clients;
    std::vector<QByteArray> states;
    for (int i = 0; i < instruments; ++i) {
        const QString name = QStringLiteral("nmr%1").arg(i + 1, 2, 10, QLatin1Char('0'));
        auto client = std::make_unique<MqttClient>(QStringLiteral("bench-") + name);
        client->setWill(onlineTopic(name), kOfflinePayload, true);
        client->start(settings);
        clients.push_back(std::move(client));
        states.push_back(largest ? largestState(name)
                                 : testing::recordedState(name, QStringLiteral("running"), kItems,
                                                          QString::fromLatin1(kStamp)));
        figures.stateBytes = states.back().size();
    }
    if (!waitUntil([&] { return std::all_of(clients.begin(), clients.end(), [](auto& c) { return c->isConnected(); }); }, 10000)) {
        std::fprintf(stderr, "the publishers did not connect\n");
        return figures;
    }
    bool measuring = false;
    const auto publish = [&](int i) {
        const QString name = QStringLiteral("nmr%1").arg(i + 1, 2, 10, QLatin1Char('0'));
        QByteArray state = states[size_t(i)];
        const qsizetype at = state.indexOf(kStamp);
        state.replace(at, kStamp.size(), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1());
        static int serial = 0;
        if (queueChanges) // one item's experiment renamed: the queue reads differently
            state.insert(state.indexOf("\"PROTON", state.indexOf("\"queue\":")) + 7,
                         QByteArray::number(++serial % 1000));
        clients[size_t(i)]->publish(stateTopic(name), state, true);
        if (measuring)
            ++figures.published;
    };
    for (int i = 0; i < instruments; ++i) {
        clients[size_t(i)]->publish(onlineTopic(QStringLiteral("nmr%1").arg(i + 1, 2, 10, QLatin1Char('0'))), kOnlinePayload, true);
        publish(i);
    }

    QTemporaryDir dir;
    const QString config = dir.filePath(QStringLiteral("facility.conf"));
    ProfileDocument file;
    file.writeString(u"web", u"Mode", QStringLiteral("facility"));
    file.writeString(u"broker", u"Host", settings.host);
    file.writeString(u"broker", u"Port", QString::number(settings.port));
    file.writeString(u"broker", u"User", settings.user);
    file.writeString(u"broker", u"Password", settings.password);
    file.save(config);
    QFile::setPermissions(config, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QProcess server;
    server.start(web, {QStringLiteral("--config"), config, QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0")});
    QByteArray said;
    quint16 port = 0;
    static const QRegularExpression at(QStringLiteral("at http://127\\.0\\.0\\.1:(\\d+)/"));
    waitUntil([&] {
        said += server.readAllStandardError();
        port = quint16(at.match(QString::fromUtf8(said)).captured(1).toUInt());
        return port != 0 || server.state() == QProcess::NotRunning;
    }, 10000);
    if (!port) {
        std::fprintf(stderr, "spinlane-web did not start: %s\n", said.constData());
        return figures;
    }

    QWebSocket live;
    std::map<QString, QString> lastUpdated; // per instrument, as the live client last saw it
    QObject::connect(&live, &QWebSocket::textMessageReceived, [&](const QString& message) {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        const QJsonArray cards = QJsonDocument::fromJson(message.toUtf8())
                                     .object()[QLatin1String("facility")][QLatin1String("instruments")].toArray();
        for (const QJsonValue& card : cards) {
            const QString updated = card[QLatin1String("instrument")][QLatin1String("updated")].toString();
            QString& last = lastUpdated[card[QLatin1String("name")].toString()];
            if (updated == last)
                continue;
            last = updated;
            const QDateTime sent = QDateTime::fromString(updated, Qt::ISODateWithMs);
            if (measuring && sent.isValid())
                figures.latencyMs.push_back(double(sent.msecsTo(now)));
        }
    });
    live.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/api/v1/live").arg(port)));

    // Each instrument changes once a second, spread evenly over the second.
    int next = 0;
    QTimer changes;
    changes.setInterval(std::max(1, 1000 / instruments));
    QObject::connect(&changes, &QTimer::timeout, [&] {
        publish(next);
        next = (next + 1) % instruments;
    });
    changes.start();
    waitFor(3000); // everything heard, caches warm

    QNetworkAccessManager network;
    const QUrl api(QStringLiteral("http://127.0.0.1:%1/api/v1/facility").arg(port));
    const QUrl summary(QStringLiteral("http://127.0.0.1:%1/api/v1/facility/summary").arg(port));
    // /healthz ten times a second, each answer timed on its own, none waited for.
    const QUrl health(QStringLiteral("http://127.0.0.1:%1/healthz").arg(port));
    QObject healthScope; // ends the answers' connections before `network` goes
    QTimer asking;
    asking.setInterval(100);
    QObject::connect(&asking, &QTimer::timeout, &healthScope, [&] {
        QElapsedTimer clock;
        clock.start();
        QNetworkReply* reply = network.get(QNetworkRequest(health));
        QObject::connect(reply, &QNetworkReply::finished, &healthScope, [&, reply, clock] {
            if (measuring && reply->error() == QNetworkReply::NoError)
                figures.healthMs.push_back(double(clock.nsecsElapsed()) / 1e6);
            reply->deleteLater();
        });
    });
    asking.start();
    measuring = true;
    const double cpuBefore = processorSeconds(server.processId());
    QElapsedTimer wall;
    wall.start();
    waitFor(seconds * 1000);
    figures.cpuShare = (processorSeconds(server.processId()) - cpuBefore) / (double(wall.elapsed()) / 1000);
    measuring = false;
    asking.stop();
    // The API's answers, the changes going on: none of them counted in the processor share.
    for (int i = 0; i < 10; ++i) {
        qint64 bytes = 0;
        figures.apiMs.push_back(getMs(network, api, &bytes));
        figures.apiBytes = bytes;
        figures.summaryMs.push_back(getMs(network, summary, &bytes));
        waitFor(200);
    }
    std::unique_ptr<QNetworkReply> metrics(network.get(QNetworkRequest(
        QUrl(QStringLiteral("http://127.0.0.1:%1/metrics").arg(port)))));
    waitUntil([&] { return metrics->isFinished(); }, 10000);
    static const QRegularExpression rejected(
        QStringLiteral("^spinlane_facility_rejected_messages_total\\{[^}]*\\} (\\d+)$"),
        QRegularExpression::MultilineOption);
    figures.rejected = 0;
    for (const QRegularExpressionMatch& m : rejected.globalMatch(QString::fromUtf8(metrics->readAll())))
        figures.rejected += m.captured(1).toDouble();
    figures.rssMB = memoryMB(server.processId(), "VmRSS");
    figures.peakMB = memoryMB(server.processId(), "VmHWM");
    changes.stop();
    if (server.state() != QProcess::Running)
        std::fprintf(stderr, "spinlane-web ended (status %d): %s\n", server.exitCode(),
                     (said + server.readAllStandardError()).constData());
    live.close();
    server.terminate();
    server.waitForFinished(5000);
    return figures;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const bool largestOnly = argc > 1 && std::strcmp(argv[1], "--largest") == 0;
    const int secondsArgument = largestOnly ? 2 : 1;
    const int seconds = argc > secondsArgument ? std::max(5, atoi(argv[secondsArgument])) : 20;
    const QString web = QStringLiteral(SPINLANE_WEB);
    std::vector<Figures> all;
    if (!largestOnly) {
        for (int instruments : {5, 20, 50}) {
            std::fprintf(stderr, "%d instruments, %d s...\n", instruments, seconds);
            all.push_back(run(web, instruments, seconds, false));
        }
        std::fprintf(stderr, "50 instruments, every change a new queue, %d s...\n", seconds);
        all.push_back(run(web, 50, seconds, true));
    }
    std::fprintf(stderr, "1 instrument, the largest state, a new queue every second, %d s...\n",
                 seconds);
    all.push_back(run(web, 1, seconds, true, true));
    std::printf("%-44s", "instruments (1 change/s each)");
    for (const Figures& f : all)
        std::printf("%12d", f.instruments);
    std::printf("\n%-44s", "queue items");
    for (const Figures& f : all)
        std::printf("%12d", f.largest ? kMaxQueueItems : kItems);
    std::printf("\n%-44s", "what changes");
    for (const Figures& f : all)
        std::printf("%12s", f.queueChanges ? "queue" : "time stamp");
    const auto row = [&](const char* name, auto value) {
        std::printf("\n%-44s", name);
        for (const Figures& f : all)
            std::printf("%12.1f", value(f));
    };
    row("one state (kB)", [](const Figures& f) { return double(f.stateBytes) / 1000; });
    row("changes published in the measured time", [](const Figures& f) { return double(f.published); });
    row("states the facility refused", [](const Figures& f) { return f.rejected; });
    row("changes seen by the live client", [](const Figures& f) { return double(f.latencyMs.size()); });
    row("change to live client, median (ms)", [](const Figures& f) { return percentile(f.latencyMs, 0.5); });
    row("change to live client, 95th percentile (ms)", [](const Figures& f) { return percentile(f.latencyMs, 0.95); });
    row("GET /healthz meanwhile, answers", [](const Figures& f) { return double(f.healthMs.size()); });
    row("GET /healthz meanwhile, median (ms)", [](const Figures& f) { return percentile(f.healthMs, 0.5); });
    row("GET /healthz meanwhile, worst (ms)", [](const Figures& f) { return percentile(f.healthMs, 1); });
    row("facility processor, % of one core", [](const Figures& f) { return f.cpuShare * 100; });
    row("facility memory, RSS at end (MB)", [](const Figures& f) { return f.rssMB; });
    row("facility memory, peak RSS (MB)", [](const Figures& f) { return f.peakMB; });
    row("GET /api/v1/facility, median (ms)", [](const Figures& f) { return percentile(f.apiMs, 0.5); });
    row("GET /api/v1/facility, 95th percentile (ms)", [](const Figures& f) { return percentile(f.apiMs, 0.95); });
    row("GET /api/v1/facility size (MB)", [](const Figures& f) { return double(f.apiBytes) / 1e6; });
    row("GET /api/v1/facility/summary, median (ms)", [](const Figures& f) { return percentile(f.summaryMs, 0.5); });
    std::printf("\n");
    return 0;
}
