// spinlane-web against the simulated laboratory, on the lab's private bus:
//
//     scripts/with-simulated-lab.sh build/bench/bench_web
//
// 1. From Spinlane's status signal (this process publishes the status as Spinlane does and
//    changes an item's status 200 times) to spinlane-status --watch's line and to a live web
//    client's message: median and 95th percentile of each.
// 2. /api/v1/instrument for a 999-item queue: requests per second with 50 keep-alive clients, and
//    the median latency.
// 3. spinlane-web's resident memory with 200 live clients.
// 4. bench_lab --publish (ten-item runs and Stop, with the status on the bus) alone, then while
//    200 live clients are connected and 50 clients hammer the API from another process.
//
// 5. With a 999-item queue, quiet and then under each attack (a client pipelining requests
//    without reading, 64 live clients that never read, a ping flood, an endless fragment chain):
//    spinlane-web's resident memory and a well-behaved API client's median latency, side by side.
//
// With --load PORT SECONDS it is that other process.

#include "queue/QueueList.h"
#include "queue/QueueStore.h"
#include "status/SpinlaneBus.h"
#include "support/QueueProbe.h"
#include "support/WebProcess.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>
#include <QWebSocket>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

constexpr int kChanges = 200;
constexpr int kApiClients = 50;
constexpr int kLiveClients = 200;

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(double(values.size()) * p))];
}

void wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitFor(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        wait(5);
    }
    return true;
}

// spinlane-web as its own process, on a free port.
class Web {
public:
    Web()
    {
        m_process.start(QCoreApplication::applicationDirPath() + u"/../web/spinlane-web"_s,
                        {u"--config"_s, u"/nonexistent/web.conf"_s, u"--listen"_s,
                         u"127.0.0.1:0"_s});
        static const QRegularExpression at(u"at http://127\\.0\\.0\\.1:(\\d+)/"_s);
        QByteArray said;
        waitFor(
            [&] {
                said += m_process.readAllStandardError();
                return at.match(QString::fromUtf8(said)).hasMatch()
                       || m_process.state() == QProcess::NotRunning;
            },
            10000);
        port = quint16(at.match(QString::fromUtf8(said)).captured(1).toUInt());
    }
    ~Web()
    {
        m_process.terminate();
        m_process.waitForFinished(5000);
    }
    qint64 residentKiB() const
    {
        QFile status(u"/proc/%1/status"_s.arg(m_process.processId()));
        status.open(QIODevice::ReadOnly);
        static const QRegularExpression rss(u"VmRSS:\\s+(\\d+)"_s);
        return rss.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
    }
    quint16 port = 0;

private:
    QProcess m_process;
};

std::unique_ptr<QWebSocket> liveClient(quint16 port)
{
    auto socket = std::make_unique<QWebSocket>();
    socket->open(QUrl(u"ws://127.0.0.1:%1/api/v1/live"_s.arg(port)));
    return socket;
}

// A keep-alive client that asks for the API again as soon as an answer is complete.
class ApiClient : public QObject {
public:
    ApiClient(quint16 port, std::vector<double>* latencies)
        : m_latencies(latencies)
    {
        connect(&m_socket, &QTcpSocket::connected, this, &ApiClient::ask);
        connect(&m_socket, &QTcpSocket::readyRead, this, &ApiClient::read);
        m_socket.connectToHost(u"127.0.0.1"_s, port);
    }
    qint64 answers = 0;
    qint64 lastBytes = 0;
    bool running = true;

private:
    void ask()
    {
        if (!running)
            return;
        m_timer.start();
        m_socket.write("GET /api/v1/instrument HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    }
    void read()
    {
        m_buffer += m_socket.readAll();
        const qsizetype end = m_buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        static const QRegularExpression length(u"Content-Length: (\\d+)"_s,
                                               QRegularExpression::CaseInsensitiveOption);
        const qsizetype body =
            length.match(QString::fromLatin1(m_buffer.left(end))).captured(1).toLongLong();
        if (m_buffer.size() < end + 4 + body)
            return;
        m_buffer.remove(0, end + 4 + body);
        lastBytes = body;
        ++answers;
        if (m_latencies)
            m_latencies->push_back(double(m_timer.nsecsElapsed()) / 1e6);
        ask();
    }

    QTcpSocket m_socket;
    QByteArray m_buffer;
    QElapsedTimer m_timer;
    std::vector<double>* m_latencies;
};

// 200 live clients and 50 API clients for `seconds`.
int load(quint16 port, int seconds)
{
    std::vector<std::unique_ptr<QWebSocket>> live;
    for (int i = 0; i < kLiveClients; ++i)
        live.push_back(liveClient(port));
    std::vector<std::unique_ptr<ApiClient>> api;
    for (int i = 0; i < kApiClients; ++i)
        api.push_back(std::make_unique<ApiClient>(port, nullptr));
    wait(seconds * 1000);
    qint64 answers = 0;
    for (const auto& client : api)
        answers += client->answers;
    std::printf("load: %lld API answers in %d s\n", static_cast<long long>(answers), seconds);
    return 0;
}

void signalToClients()
{
    testing::makeQueue(3);
    PublishOnBus();
    Web web;
    QProcess watch;
    watch.start(QCoreApplication::applicationDirPath() + u"/../tools/spinlane-status/spinlane-status"_s,
                {u"--watch"_s});
    waitFor([&] { return watch.canReadLine(); }, 10000);
    watch.readAll();
    auto live = liveClient(web.port);
    int messages = 0;
    qsizetype messageBytes = 0;
    // Each client's arrival is stamped as it is delivered, not when a wait looks.
    QElapsedTimer since;
    double watchMs = -1, webMs = -1;
    QObject::connect(live.get(), &QWebSocket::textMessageReceived,
                     [&](const QString& text) {
                         ++messages;
                         messageBytes = text.toUtf8().size();
                         if (webMs < 0 && since.isValid())
                             webMs = double(since.nsecsElapsed()) / 1e6;
                     });
    QObject::connect(&watch, &QProcess::readyReadStandardOutput, [&] {
        if (watchMs < 0 && since.isValid() && watch.canReadLine())
            watchMs = double(since.nsecsElapsed()) / 1e6;
    });
    waitFor([&] { return messages > 0; }, 10000);
    wait(500);

    std::vector<double> toWatch, toWeb;
    for (int i = 0; i < kChanges; ++i) {
        watch.readAll();
        watchMs = webMs = -1;
        since.start();
        gQueueList.setSubItem(1, QueueList::StatusSubItem, i % 2 ? u"Idle"_s : u"Done"_s);
        waitFor([&] { return watchMs >= 0 && webMs >= 0; }, 5000);
        toWatch.push_back(watchMs);
        toWeb.push_back(webMs);
        wait(50);
    }
    std::printf("%-52s median %7.2f ms, p95 %7.2f ms over %d changes\n",
                "status signal to spinlane-status --watch line", percentile(toWatch, 0.5),
                percentile(toWatch, 0.95), kChanges);
    std::printf("%-52s median %7.2f ms, p95 %7.2f ms (goal: median within 50 ms)\n",
                "status signal to a live web client's message", percentile(toWeb, 0.5),
                percentile(toWeb, 0.95));
    watch.kill();
    watch.waitForFinished();

    // A queue of 999 items.
    testing::makeQueue(999);
    waitFor([&] { return messages > kChanges + 1; }, 10000);
    wait(500);
    std::vector<double> latencies;
    std::vector<std::unique_ptr<ApiClient>> api;
    for (int i = 0; i < kApiClients; ++i)
        api.push_back(std::make_unique<ApiClient>(web.port, &latencies));
    wait(1000);
    for (const auto& client : api)
        client->answers = 0;
    latencies.clear();
    constexpr int kSeconds = 5;
    wait(kSeconds * 1000);
    qint64 answers = 0;
    for (const auto& client : api) {
        answers += client->answers;
        client->running = false;
    }
    std::printf("%-52s %7.0f per second, median latency %6.2f ms (goal >= 2000/s)\n",
                "/api/v1/instrument, 999 items, 50 clients", double(answers) / kSeconds,
                percentile(latencies, 0.5));
    api.clear();

    std::printf("%-52s %7.1f MB; a message of 999 items: %lld kB\n",
                "spinlane-web resident, 1 live client, 999 items", double(web.residentKiB()) / 1024,
                static_cast<long long>(messageBytes / 1024));
    std::vector<std::unique_ptr<QWebSocket>> many;
    for (int i = 0; i < kLiveClients; ++i)
        many.push_back(liveClient(web.port));
    waitFor(
        [&] {
            return std::all_of(many.begin(), many.end(), [](const auto& s) {
                return s->state() == QAbstractSocket::ConnectedState;
            });
        },
        20000);
    gQueueList.setSubItem(1, QueueList::StatusSubItem, u"Failed"_s);
    wait(2000);
    std::printf("%-52s %7.1f MB (goal < 60 MB)\n", "spinlane-web resident, 200 live, 999 items",
                double(web.residentKiB()) / 1024);
    WithdrawFromBus();
}

// bench_lab --publish, alone or beside the web load; its output as it comes.
void labUnderLoad(bool withLoad)
{
    std::printf("\nbench_lab --publish, %s:\n", withLoad ? "200 live and 50 API clients" : "no web");
    std::fflush(stdout);
    std::unique_ptr<Web> web;
    QProcess loader;
    if (withLoad) {
        web = std::make_unique<Web>();
        loader.setProcessChannelMode(QProcess::ForwardedChannels);
        loader.start(QCoreApplication::applicationFilePath(),
                     {u"--load"_s, QString::number(web->port), u"1200"_s});
        wait(2000);
    }
    QProcess lab;
    lab.setProcessChannelMode(QProcess::ForwardedChannels);
    lab.start(QCoreApplication::applicationDirPath() + u"/bench_lab"_s, {u"--publish"_s});
    lab.waitForFinished(-1);
    loader.kill();
    loader.waitForFinished();
}

// One attack: what it starts, and what it keeps doing every 20 ms.
struct Attack {
    const char* name;
    int clients;
    QByteArray opening; // sent once each client is connected (after the upgrade when live)
    QByteArray again; // sent every 20 ms, as far as the server takes it
    bool live;
};

void attacks()
{
    testing::makeQueue(999);
    PublishOnBus();
    const QByteArray request = "GET /api/v1/instrument HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    const Attack all[] = {
        {"quiet", 0, {}, {}, false},
        {"pipelining without reading", 1, request.repeated(2000), request.repeated(200), false},
        {"64 live clients that never read", 64, {}, {}, true},
        {"ping flood", 1, {}, testing::clientFrame(0x9, QByteArray(125, 'p')).repeated(100), true},
        {"endless fragment chain", 1, testing::clientFrame(0x1, "x", false),
         testing::clientFrame(0x0, QByteArray(120, 'x'), false).repeated(100), true},
    };
    std::printf("\n%-34s%14s%18s%14s\n", "attack (999-item queue)", "memory (MB)", "API median (ms)",
                "answer (kB)");
    for (const Attack& attack : all) {
        Web web;
        std::vector<std::unique_ptr<testing::RawClient>> clients;
        for (int i = 0; i < attack.clients; ++i) {
            clients.push_back(std::make_unique<testing::RawClient>(web.port));
            if (attack.live)
                clients.back()->upgrade();
            clients.back()->send(attack.opening);
        }
        QTimer again;
        QObject::connect(&again, &QTimer::timeout, [&] {
            for (const auto& client : clients)
                client->send(attack.again);
        });
        if (!attack.again.isEmpty())
            again.start(20);
        wait(1000);
        std::vector<double> latencies;
        ApiClient client(web.port, &latencies);
        wait(3000);
        std::printf("%-34s%14.1f%18.2f%14.1f\n", attack.name, double(web.residentKiB()) / 1024,
                    percentile(latencies, 0.5), double(client.lastBytes) / 1024);
        std::fflush(stdout);
    }
    WithdrawFromBus();
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 4 && arguments[1] == u"--load"_s)
        return load(quint16(arguments[2].toUInt()), arguments[3].toInt());
    if (!QDBusConnection::sessionBus().isConnected()) {
        std::fprintf(stderr, "no session bus: run me with scripts/with-simulated-lab.sh\n");
        return 1;
    }
    if (arguments.contains(u"--attacks"_s)) {
        attacks();
        return 0;
    }
    signalToClients();
    attacks();
    labUnderLoad(false);
    labUnderLoad(true);
    return 0;
}
