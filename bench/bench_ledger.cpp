// The ledger's costs on SQLite and on PostgreSQL, side by side in one run: the record written at
// an outcome with its sync, records taken in as a facility receives them (one per transaction,
// and a hundred), the forecast's read, a month's report over a year of 50 instruments and the
// facility's usage API for that month, asked over HTTP as the manager's page asks it.
// Prints medians.
//   build/bench/bench_ledger [FOLDER]   (FOLDER: where the ledgers are made; a temporary one)

#include "ledger/LedgerReport.h"
#include "ledger/LedgerStore.h"
#include "support/PostgresServer.h"
#include "web/FacilityServer.h"
#include "web/ManagerAccounts.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QUrl>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>

using namespace Qt::StringLiterals;
using namespace spinlane;

namespace {

const QDateTime kYear(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);

LedgerRecord recordAt(std::mt19937& random, int instrument, qint64 minute)
{
    const QStringList organizations{u"Chemistry"_s, u"Biology"_s, u"Physics"_s, u"Pharmacy"_s,
                                    u"Acme Analytics"_s, u"Materials"_s};
    LedgerRecord r;
    r.instrument = u"nmr"_s + QString::number(instrument);
    r.itemSerial = QString::number(46348000 + minute);
    r.queueNumber = int(minute % 999) + 1;
    r.user = u"user"_s + QString::number(random() % 200);
    r.organization = organizations[int(random() % organizations.size())];
    r.sampleName = u"Sample "_s + QString::number(minute);
    r.samplePosition = int(minute % 60) + 1;
    r.dataFile = u"/korvo/Data/"_s + r.user + u"/sample.kvd"_s;
    r.run.takenUp = kYear.addSecs(minute * 60);
    r.run.ended = r.run.takenUp.addSecs(600 + random() % 3000);
    r.run.outcome = random() % 20 ? u"Done"_s : u"Failed"_s;
    r.run.mode = RunMode::Changer;
    r.run.loaded = true;
    r.run.loadSeconds = 20;
    r.run.spinSeconds = 11;
    r.run.experimentSeconds = secondsBetween(r.run.takenUp, r.run.ended) - 40;
    r.run.title = u"PROTON"_s;
    r.run.solvent = u"CDCl3"_s;
    return r;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::unique_ptr<LedgerStore> openOrDie(const QString& path)
{
    QString error;
    std::unique_ptr<LedgerStore> store = LedgerStore::open(path, {}, &error);
    if (!store)
        qFatal("%s: %s", qPrintable(path), qPrintable(error));
    return store;
}

// Where each part's ledger is made: an SQLite file in a folder, or a database of its own on a
// PostgreSQL server.
struct Store {
    const char* name;
    std::function<QString(const QString& part)> ledgerFor;
};

// A request to a local server and its answer, waited for.
QNetworkReply* fetch(QNetworkAccessManager& net, const QNetworkRequest& request,
                     const QByteArray& method = "GET", const QByteArray& body = {})
{
    QNetworkReply* reply = net.sendCustomRequest(request, method, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    return reply;
}

// The facility's usage API for a month of `database`, through a facility spinlane-web's own
// server: logged in once, then the month asked five times.
void measureUsageApi(const QString& database, const QString& folder)
{
    web::WebSettings settings;
    settings.mode = web::WebSettings::Mode::Facility;
    settings.broker.host = u"127.0.0.1"_s;
    settings.broker.port = 1; // nobody: the broker plays no part here
    settings.address = QHostAddress::LocalHost;
    settings.port = 0;
    settings.ledgerDatabase = database;
    settings.managersFile = folder + u"/managers"_s;
    QString error;
    if (!web::writeManager(settings.managersFile, u"boss"_s, web::hashPassword("bench password"),
                           &error))
        qFatal("%s", qPrintable(error));
    web::FacilityServer server(settings);
    if (!server.listen(&error))
        qFatal("%s", qPrintable(error));
    const QString base = u"http://127.0.0.1:%1"_s.arg(server.port());
    QNetworkAccessManager net;
    QNetworkRequest login(QUrl(base + u"/api/v1/login"_s));
    login.setRawHeader("Origin", base.toUtf8());
    login.setRawHeader("Content-Type", "application/json");
    std::unique_ptr<QNetworkReply> loggedIn(
        fetch(net, login, "POST", R"({"user":"boss","password":"bench password"})"));
    if (loggedIn->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200)
        qFatal("the login failed: %s", loggedIn->readAll().constData());
    std::vector<double> ms;
    qsizetype bytes = 0;
    for (int run = 0; run < 5; ++run) {
        QElapsedTimer timer;
        timer.start();
        std::unique_ptr<QNetworkReply> usage(
            fetch(net, QNetworkRequest(QUrl(base + u"/api/v1/facility/usage/2026-06"_s))));
        ms.push_back(timer.nsecsElapsed() / 1e6);
        if (usage->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200)
            qFatal("the usage API failed: %s", usage->readAll().constData());
        bytes = usage->readAll().size();
    }
    std::printf("the usage API for that month over HTTP (%lld bytes): median %.0f ms\n",
                qlonglong(bytes), median(ms));
}

void measure(const Store& store, const QString& folder, std::mt19937& random)
{
    std::printf("== %s\n", store.name);
    // The record at an outcome, as the run loop writes it: one transaction, synced.
    {
        auto ledger = openOrDie(store.ledgerFor(u"outcome"_s));
        std::vector<double> ms;
        for (int i = 0; i < 200; ++i) {
            std::vector<LedgerRecord> one{recordAt(random, 1, i * 30)};
            QElapsedTimer timer;
            timer.start();
            if (!ledger->append(one, nullptr))
                qFatal("append failed");
            ms.push_back(timer.nsecsElapsed() / 1e6);
        }
        std::printf("record at an outcome, synced: median %.2f ms (200 writes)\n", median(ms));
    }

    // Taken in as the facility receives them, each record sent twice.
    for (const int batch : {1, 100}) {
        auto ledger = openOrDie(store.ledgerFor(u"ingest"_s + QString::number(batch)));
        std::vector<LedgerRecord> records;
        for (int i = 0; i < 2000; ++i) {
            records.push_back(recordAt(random, i % 50, i * 10));
            records.back().number = i + 1;
        }
        QElapsedTimer timer;
        timer.start();
        for (int pass = 0; pass < 2; ++pass) {
            for (std::size_t i = 0; i < records.size(); i += std::size_t(batch)) {
                const std::vector<LedgerRecord> part(records.begin() + qsizetype(i),
                                                     records.begin() + qsizetype(i + std::size_t(batch)));
                if (!ledger->insert(part, nullptr))
                    qFatal("insert failed");
            }
        }
        const double seconds = timer.nsecsElapsed() / 1e9;
        std::printf("ingest, %3d per transaction: %.0f records/s (4000 sent, 2000 new)\n", batch,
                    4000 / seconds);
    }

    // A year of 50 instruments, an item every 53 minutes on each: about 500,000 records.
    const QString year = store.ledgerFor(u"year"_s);
    auto ledger = openOrDie(year);
    QElapsedTimer timer;
    timer.start();
    for (int instrument = 0; instrument < 50; ++instrument) {
        std::vector<LedgerRecord> records;
        for (qint64 minute = instrument; minute < 365 * 24 * 60; minute += 53)
            records.push_back(recordAt(random, instrument, minute));
        if (!ledger->append(records, nullptr))
            qFatal("append failed");
    }
    std::printf("a year of 50 instruments written in %.1f s\n", timer.nsecsElapsed() / 1e9);
    // What the forecast reads once: the newest 20,000 records.
    std::vector<double> newestMs;
    for (int run = 0; run < 5; ++run) {
        QElapsedTimer read;
        read.start();
        if (ledger->newest(20000, nullptr)->size() != 20000)
            qFatal("newest failed");
        newestMs.push_back(read.nsecsElapsed() / 1e6);
    }
    std::printf("the newest 20,000 records, as the forecast reads them: median %.0f ms\n",
                median(newestMs));
    std::vector<double> ms;
    std::size_t items = 0;
    for (int run = 0; run < 5; ++run) {
        QElapsedTimer report;
        report.start();
        const QDateTime from(QDate(2026, 6, 1), QTime(0, 0), Qt::UTC);
        const auto month = ledger->endedBetween(from, from.addMonths(1), nullptr);
        const UsageReport usage = usageReport(*month, ReportBy::Organization);
        (void)reportCsv(usage);
        items = month->size();
        ms.push_back(report.nsecsElapsed() / 1e6);
    }
    std::printf("a month's report by organization (%zu of the year's records): median %.0f ms\n",
                items, median(ms));
    ledger.reset();
    measureUsageApi(year, folder);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir temporary;
    const QString folder = app.arguments().value(1, temporary.path());
    std::mt19937 random(7);
    measure({"SQLite", [&](const QString& part) { return folder + u'/' + part + u".ledger"_s; }},
            folder, random);

    const PostgresServer server;
    if (!server.error().isEmpty())
        qFatal("%s", qPrintable(server.error()));
    QSqlDatabase admin = QSqlDatabase::addDatabase(u"QPSQL"_s, u"admin"_s);
    const QUrl url(server.url());
    admin.setHostName(url.host());
    admin.setPort(url.port());
    admin.setUserName(url.userName());
    admin.setDatabaseName(u"postgres"_s);
    if (!admin.open())
        qFatal("cannot reach the PostgreSQL server");
    measure({"PostgreSQL (a server of its own on loopback, fsync off)",
             [&](const QString& part) {
                 QSqlQuery(admin).exec(u"CREATE DATABASE "_s + part);
                 return server.url(part);
             }},
            folder, random);
    return 0;
}
