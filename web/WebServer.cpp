#include "web/WebServer.h"

#include "facility/FacilityModel.h"
#include "web/HttpRequest.h"
#include "web/InstrumentJson.h"
#include "web/PageFiles.h"
#include "web/Metrics.h"

#include <QJsonDocument>
#include <QWebSocket>

using namespace Qt::StringLiterals;

// The page's files are compiled into this static library, so they are registered by hand.
static void registerPage() { Q_INIT_RESOURCE(page); }

namespace spinlane::web {
namespace {

const PageFile kPageFiles[] = {
    {"/", ":/spinlane-web/index.html", "text/html; charset=utf-8"},
    {"/page.css", ":/spinlane-web/page.css", "text/css; charset=utf-8"},
    {"/common.js", ":/spinlane-web/common.js", "text/javascript; charset=utf-8"},
    {"/page.js", ":/spinlane-web/page.js", "text/javascript; charset=utf-8"},
};

QByteArray brokerMetric(const QString& instrument, bool connected)
{
    const QByteArray name = facility::escapedLabel(instrument);
    return "# HELP spinlane_broker_connected 1 while the instrument's state reaches the facility's "
           "broker\n# TYPE spinlane_broker_connected gauge\nspinlane_broker_connected{instrument=\""
           + name + "\"} " + (connected ? "1\n" : "0\n");
}

// "My samples" asks here which items are a user's, since the page may not carry user IDs.
const QString kUserItemsPath = u"/api/v1/instrument/users/"_s;

HttpReply text(int status, const QByteArray& body)
{
    return {status, "text/plain; charset=utf-8", body, true, {}};
}

} // namespace

WebServer::WebServer(const WebSettings& settings, const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_mirror(bus)
    , m_http({settings.maxConnections, settings.maxRequestBytes, settings.idleSeconds,
              settings.allowedHosts, 0, settings.certificate, settings.key},
             [this](const HttpCall& call, const HttpFace::Respond& respond) {
                 respond(answer(call.request.path));
             },
             [this](std::unique_ptr<QWebSocket> socket) { m_live.take(std::move(socket)); })
    , m_live(settings.maxLiveClients, settings.liveStallSeconds)
{
    registerPage();
    if (settings.broker.isSet()) {
        m_publisher = std::make_unique<facility::InstrumentPublisher>(settings.instrument);
        connect(&m_publisher->client(), &facility::MqttClient::problem, this, [](const QString& text) {
            qWarning("spinlane-web: broker: %s", qPrintable(text));
        });
        connect(&m_publisher->client(), &facility::MqttClient::connected, this, [this] {
            qInfo("spinlane-web: broker: publishing %s to %s", qPrintable(m_settings.instrument),
                  qPrintable(m_settings.broker.address()));
        });
        m_ledgerOutbox = std::make_unique<LedgerOutbox>(
            m_publisher->client(), settings.instrument, settings.ledgerFile,
            settings.broker.address(), settings.ledgerResendSeconds);
        if (!m_publisher->start(settings.broker))
            qWarning("spinlane-web: broker: %s", qPrintable(m_publisher->problem()));
    }
    connect(&m_mirror, &StatusMirror::changed, this, &WebServer::statusChanged);
    statusChanged();
}

bool WebServer::listen(QString* error)
{
    return m_http.listen(m_settings.address, m_settings.port, error);
}

void WebServer::statusChanged()
{
    const QJsonObject json = instrumentJson(
        m_mirror, {m_settings.instrument, m_settings.hideSampleNames, m_settings.hideUsers});
    if (json == m_lastJson && !m_instrument.isEmpty())
        return;
    m_lastJson = json;
    QJsonObject stamped = json;
    stamped.insert(u"updated"_s,
                   QDateTime::currentDateTime().toOffsetFromUtc(
                       QDateTime::currentDateTime().offsetFromUtc()).toString(Qt::ISODateWithMs));
    m_instrument = QJsonDocument(stamped).toJson(QJsonDocument::Compact);
    ++m_seq;
    const QJsonObject message{{u"seq"_s, m_seq}, {u"instrument"_s, stamped}};
    m_live.send(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    if (m_publisher)
        m_publisher->setState(m_instrument);
}

HttpReply WebServer::answer(const QString& path) const
{
    if (path == u"/api/v1/instrument"_s)
        return {200, "application/json", m_instrument, true, {}};
    if (path.startsWith(kUserItemsPath)) {
        const QString user = path.mid(kUserItemsPath.size());
        return {200, "application/json",
                QJsonDocument(userItemsJson(m_mirror, user)).toJson(QJsonDocument::Compact), true, {}};
    }
    if (path == u"/metrics"_s) {
        const MetricsInput input{m_mirror.state(),         m_settings.instrument,
                                 m_mirror.itemsDone(),     m_mirror.itemsFailed(),
                                 m_live.clients(),         QDateTime::currentDateTime()};
        QByteArray text = metricsText(input);
        if (m_publisher)
            text += brokerMetric(m_settings.instrument, m_publisher->isDelivering());
        return {200, "text/plain; version=0.0.4; charset=utf-8", text, true, {}};
    }
    if (path == u"/healthz"_s) {
        QByteArray health = m_mirror.state().spinlane ? "ok" : "ok (Spinlane is not running)";
        if (m_publisher && !m_publisher->isDelivering())
            health += " (the broker: "
                      + (m_publisher->problem().isEmpty() ? QByteArray("not connected yet")
                                                          : m_publisher->problem().toUtf8())
                      + ')';
        return text(200, health + '\n');
    }
    if (path == kLivePath)
        return text(426, "The live channel is a WebSocket.\n");
    return pageFileAt(path, kPageFiles).value_or(text(404, "Not found.\n"));
}

} // namespace spinlane::web
