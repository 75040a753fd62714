#include "web/FacilityServer.h"

#include "web/HttpRequest.h"
#include "web/PageFiles.h"
#include "web/UsageView.h"

#include <QDir>
#include <QFileInfo>
#include <QWebSocket>

using namespace Qt::StringLiterals;

static void registerFacilityPage()
{
    Q_INIT_RESOURCE(page);
    Q_INIT_RESOURCE(chart);
}

namespace spinlane::web {
namespace {

const QString kInstrumentPrefix = u"/api/v1/facility/instruments/"_s;
const QString kSamplesPrefix = u"/api/v1/facility/samples/"_s;
const QString kUsagePrefix = u"/api/v1/facility/usage/"_s;
const QString kLoginPath = u"/api/v1/login"_s;
const QString kLogoutPath = u"/api/v1/logout"_s;
// A login's body: {"user","password"}.
constexpr int kMaxLoginBytes = 1024;

HttpReply json(const QByteArray& body) { return {200, "application/json", body, true, {}}; }
HttpReply text(int status, const QByteArray& body)
{
    return {status, "text/plain; charset=utf-8", body, true, {}};
}
const PageFile kPageFiles[] = {
    {"/", ":/spinlane-web/facility.html", "text/html; charset=utf-8"},
    {"/page.css", ":/spinlane-web/page.css", "text/css; charset=utf-8"},
    {"/facility.css", ":/spinlane-web/facility.css", "text/css; charset=utf-8"},
    {"/common.js", ":/spinlane-web/common.js", "text/javascript; charset=utf-8"},
    {"/facility.js", ":/spinlane-web/facility.js", "text/javascript; charset=utf-8"},
    {"/usage", ":/spinlane-web/usage.html", "text/html; charset=utf-8"},
    {"/usage.js", ":/spinlane-web/usage.js", "text/javascript; charset=utf-8"},
    {"/chart.min.js", ":/spinlane-web/chart.min.js", "text/javascript; charset=utf-8"},
};

// Usage is shown only where nobody on the way reads it: over TLS, or to this machine, where a
// reverse proxy that holds the TLS passes it on.
bool privateEnough(const HttpCall& call) { return call.encrypted || call.peer.isLoopback(); }

} // namespace

FacilityServer::FacilityServer(const WebSettings& settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_login(settings.managersFile)
    , m_http({settings.maxConnections, settings.maxRequestBytes, settings.idleSeconds,
              settings.allowedHosts, kMaxLoginBytes, settings.certificate, settings.key},
             [this](const HttpCall& call, const HttpFace::Respond& respond) { serve(call, respond); },
             [this](std::unique_ptr<QWebSocket> socket) { m_live.take(std::move(socket)); })
    , m_live(settings.maxLiveClients, settings.liveStallSeconds)
{
    registerFacilityPage();
    // A burst of changes (the retained states of every instrument after a reconnection) gives
    // one message.
    m_soon.setSingleShot(true);
    m_soon.setInterval(0);
    connect(&m_soon, &QTimer::timeout, this, &FacilityServer::send);
    connect(&m_model, &facility::FacilityModel::instrumentChanged, this, &FacilityServer::sendSoon);
    connect(&m_model.client(), &facility::MqttClient::problem, this, [this](const QString& problem) {
        qWarning("spinlane-web: broker: %s", qPrintable(problem));
        sendSoon();
    });
    connect(&m_model.client(), &facility::MqttClient::connected, this, &FacilityServer::sendSoon);
    connect(&m_model.client(), &facility::MqttClient::disconnected, this, &FacilityServer::sendSoon);
    connect(&m_model, &facility::FacilityModel::messageRejected, this,
            [](const QString& topic, const QString& why) {
                qWarning("spinlane-web: ignored a message on %s (%s)", qPrintable(topic), qPrintable(why));
            });
    startLedgerCollector();
    m_model.start(settings.broker);
    send();
}

// Every instrument's ledger records go to the facility's database; the page works without it.
void FacilityServer::startLedgerCollector()
{
    const QString& database = m_settings.ledgerDatabase;
    if (!database.contains(u"://"))
        QDir().mkpath(QFileInfo(database).path());
    QString error;
    std::unique_ptr<LedgerStore> ledger =
        LedgerStore::open(database, m_settings.ledgerPassword, &error);
    if (!ledger) {
        qWarning("spinlane-web: the facility's ledger %s cannot be opened (%s); the instruments' "
                 "records are not collected",
                 qPrintable(database), qPrintable(error));
        return;
    }
    qInfo("spinlane-web: collecting the instruments' ledger records in %s", qPrintable(database));
    m_ledgerCollector = std::make_unique<facility::LedgerCollector>(m_model.client(), std::move(ledger));
    connect(m_ledgerCollector.get(), &facility::LedgerCollector::messageRejected, this,
            [](const QString& topic, const QString& why) {
                qWarning("spinlane-web: ignored a ledger record on %s (%s)", qPrintable(topic),
                         qPrintable(why));
            });
}

bool FacilityServer::listen(QString* error)
{
    return m_http.listen(m_settings.address, m_settings.port, error);
}

void FacilityServer::sendSoon()
{
    if (!m_soon.isActive())
        m_soon.start();
}

void FacilityServer::send()
{
    ++m_seq;
    m_live.send(QString::fromUtf8("{\"seq\":" + QByteArray::number(m_seq) + ",\"facility\":"
                                  + m_model.facilityJson(facility::FacilityModel::Detail::Summary)
                                  + '}'));
}

// "ok", and what is wrong besides, since the page goes on without the broker or the ledger.
QByteArray FacilityServer::health() const
{
    QByteArray health = "ok";
    const facility::MqttClient& client = m_model.client();
    if (!client.isConnected())
        health += " (the broker is not connected: "
                  + (client.lastProblem().isEmpty() ? QByteArray("not yet")
                                                    : client.lastProblem().toUtf8())
                  + ')';
    if (!m_ledgerCollector)
        health += " (the facility's ledger cannot be opened)";
    else if (!m_ledgerCollector->problem().isEmpty())
        health += " (the facility's ledger cannot be written: "
                  + m_ledgerCollector->problem().toUtf8() + ')';
    return health + '\n';
}

QByteArray FacilityServer::ledgerMetrics() const
{
    const facility::LedgerCollector* ledger = m_ledgerCollector.get();
    return "# HELP spinlane_facility_ledger_writable 1 while the facility's ledger takes the "
           "instruments' records\n# TYPE spinlane_facility_ledger_writable gauge\n"
           "spinlane_facility_ledger_writable "
           + QByteArray(ledger && ledger->problem().isEmpty() ? "1" : "0")
           + "\n# HELP spinlane_facility_ledger_records_total Records new to the facility's ledger "
             "since spinlane-web started\n# TYPE spinlane_facility_ledger_records_total counter\n"
             "spinlane_facility_ledger_records_total "
           + QByteArray::number(ledger ? ledger->storedRecords() : 0)
           + "\n# HELP spinlane_facility_ledger_rejected_total Ledger messages refused since "
             "spinlane-web started\n# TYPE spinlane_facility_ledger_rejected_total counter\n"
             "spinlane_facility_ledger_rejected_total "
           + QByteArray::number(ledger ? ledger->rejectedMessages() : 0) + '\n';
}

void FacilityServer::serve(const HttpCall& call, const HttpFace::Respond& respond)
{
    const QString& path = call.request.path;
    const bool post = call.request.method == "POST";
    if (path == kLoginPath || path == kLogoutPath) {
        if (!post)
            return respond(text(405, "Log in and out with POST.\n"));
        if (!privateEnough(call))
            return respond(text(403, "Managers log in over HTTPS only.\n"));
        if (path == kLoginPath)
            return m_login.logIn(call, respond);
        return respond(m_login.logOut(call));
    }
    if (post)
        return respond(text(405, "Only GET and HEAD are served here.\n"));
    if (path.startsWith(kUsagePrefix))
        return respond(usage(call));
    respond(answer(path));
}

HttpReply FacilityServer::usage(const HttpCall& call)
{
    if (!privateEnough(call))
        return text(403, "Usage is served over HTTPS only.\n");
    if (!m_login.managerOf(call.request))
        return text(401, "Log in as a facility manager to see the usage.\n");
    if (!m_ledgerCollector)
        return text(503, "The facility's ledger is not open.\n");
    QString month = call.request.path.mid(kUsagePrefix.size());
    const bool csv = month.endsWith(u".csv"_s);
    if (csv)
        month.chop(4);
    const std::optional<QDate> first = parseMonth(month);
    if (!first)
        return text(404, "Not a month: YYYY-MM.\n");
    QString error;
    LedgerStore& ledger = m_ledgerCollector->ledger();
    const std::optional<QByteArray> body =
        csv ? usageCsv(ledger, *first, &error) : usageJson(ledger, *first, &error);
    if (!body)
        return text(503, "The facility's ledger cannot be read: " + error.toUtf8() + '\n');
    if (!csv)
        return json(*body);
    HttpReply reply{200, "text/csv; charset=utf-8", *body, true, {}};
    reply.headers.append({"Content-Disposition",
                          "attachment; filename=\"spinlane-usage-" + month.toLatin1() + ".csv\""});
    return reply;
}

HttpReply FacilityServer::answer(const QString& path) const
{
    using Detail = facility::FacilityModel::Detail;
    if (path == u"/api/v1/facility"_s)
        return json(m_model.facilityJson(Detail::Full));
    if (path == u"/api/v1/facility/summary"_s)
        return json(m_model.facilityJson(Detail::Summary));
    if (path.startsWith(kInstrumentPrefix)) {
        const QByteArray entry = m_model.entryJson(path.mid(kInstrumentPrefix.size()));
        return entry.isEmpty() ? text(404, "No such instrument.\n") : json(entry);
    }
    if (path.startsWith(kSamplesPrefix))
        return json(m_model.samplesJson(path.mid(kSamplesPrefix.size())));
    if (path == u"/metrics"_s)
        return {200, "text/plain; version=0.0.4; charset=utf-8",
                m_model.metricsText() + ledgerMetrics(), true, {}};
    if (path == u"/healthz"_s)
        return text(200, health());
    if (path == kLivePath)
        return text(426, "The live channel is a WebSocket.\n");
    return pageFileAt(path, kPageFiles).value_or(text(404, "Not found.\n"));
}

} // namespace spinlane::web
