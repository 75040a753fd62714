#include "web/FacilityServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QWebSocket>

using namespace Qt::StringLiterals;

static void registerFacilityPage() { Q_INIT_RESOURCE(page); }

namespace spinlane::web {
namespace {

const QString kInstrumentPrefix = u"/api/v1/facility/instruments/"_s;
const QString kSamplesPrefix = u"/api/v1/facility/samples/"_s;

HttpReply json(const QByteArray& body) { return {200, "application/json", body, true}; }
HttpReply text(int status, const QByteArray& body)
{
    return {status, "text/plain; charset=utf-8", body, true};
}
HttpReply pageFile(const QString& resource, const char* type)
{
    QFile file(resource);
    return {200, type, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(), false};
}

} // namespace

FacilityServer::FacilityServer(const WebSettings& settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_http({settings.maxConnections, settings.maxRequestBytes, settings.idleSeconds,
              settings.allowedHosts},
             [this](const QString& path) { return answer(path); },
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
        return {200, "text/plain; version=0.0.4; charset=utf-8", m_model.metricsText(), true};
    if (path == u"/healthz"_s)
        return text(200, m_model.client().isConnected()
                             ? QByteArray("ok\n")
                             : "ok (the broker is not connected: "
                                   + (m_model.client().lastProblem().isEmpty()
                                          ? QByteArray("not yet")
                                          : m_model.client().lastProblem().toUtf8())
                                   + ")\n");
    if (path == kLivePath)
        return text(426, "The live channel is a WebSocket.\n");
    if (path == u"/"_s)
        return pageFile(u":/spinlane-web/facility.html"_s, "text/html; charset=utf-8");
    if (path == u"/page.css"_s)
        return pageFile(u":/spinlane-web/page.css"_s, "text/css; charset=utf-8");
    if (path == u"/facility.css"_s)
        return pageFile(u":/spinlane-web/facility.css"_s, "text/css; charset=utf-8");
    if (path == u"/common.js"_s)
        return pageFile(u":/spinlane-web/common.js"_s, "text/javascript; charset=utf-8");
    if (path == u"/facility.js"_s)
        return pageFile(u":/spinlane-web/facility.js"_s, "text/javascript; charset=utf-8");
    return text(404, "Not found.\n");
}

} // namespace spinlane::web
