#pragma once

#include "facility/InstrumentPublisher.h"
#include "web/HttpFace.h"
#include "web/LedgerOutbox.h"
#include "web/LiveChannel.h"
#include "web/StatusMirror.h"
#include "web/WebSettings.h"

#include <QDateTime>
#include <QJsonObject>

#include <memory>

// spinlane-web's parts together: the copy of Spinlane's status, the answers made from it once
// per change (never per request), the HTTP side, the live channel and, with a broker configured,
// the publisher that hands every change to the facility without waiting for the broker.
namespace spinlane::web {

class WebServer : public QObject {
    Q_OBJECT
public:
    WebServer(const WebSettings& settings, const QDBusConnection& bus, QObject* parent = nullptr);

    bool listen(QString* error);
    quint16 port() const { return m_http.port(); }

    // The answer to GET `path`.
    HttpReply answer(const QString& path) const;

private:
    void statusChanged();

    WebSettings m_settings;
    StatusMirror m_mirror;
    QByteArray m_instrument; // /api/v1/instrument's body
    QJsonObject m_lastJson; // without "updated"
    qint64 m_seq = 0;
    HttpFace m_http;
    LiveChannel m_live; // after m_http: its sockets go first
    std::unique_ptr<facility::InstrumentPublisher> m_publisher;
    std::unique_ptr<LedgerOutbox> m_ledgerOutbox; // beside the publisher, on its connection
};

} // namespace spinlane::web
