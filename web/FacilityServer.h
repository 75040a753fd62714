#pragma once

#include "facility/FacilityModel.h"
#include "facility/LedgerCollector.h"
#include "web/HttpFace.h"
#include "web/LiveChannel.h"
#include "web/ManagerLogin.h"
#include "web/WebSettings.h"

#include <QTimer>

#include <memory>

// spinlane-web in facility mode: every instrument the broker carries, on one page. No Spinlane
// and no session bus are needed here.
//   /api/v1/facility                     every instrument with its whole state
//   /api/v1/facility/summary             the same without the queues (the cards)
//   /api/v1/facility/instruments/NAME    one instrument with its whole state
//   /api/v1/facility/samples/USER        "my samples": USER's items not done, soonest first
//   /api/v1/live                         {"seq","facility"}: the summary, whole, after every
//                                        change (the changes of one moment give one message)
// and, for the facility's managers only, over TLS or from this machine (a reverse proxy):
//   POST /api/v1/login, /api/v1/logout   {"user","password"} -> a session cookie
//   /api/v1/facility/usage/YYYY-MM[.csv] hours per organization and instrument in that month
//   /usage                               the page that shows them
namespace spinlane::web {

class FacilityServer : public QObject {
    Q_OBJECT
public:
    explicit FacilityServer(const WebSettings& settings, QObject* parent = nullptr);

    bool listen(QString* error);
    quint16 port() const { return m_http.port(); }
    HttpReply answer(const QString& path) const;
    facility::FacilityModel& model() { return m_model; }

private:
    void serve(const HttpCall& call, const HttpFace::Respond& respond);
    HttpReply usage(const HttpCall& call);
    QByteArray health() const;
    QByteArray ledgerMetrics() const;
    void startLedgerCollector();
    void sendSoon();
    void send();

    WebSettings m_settings;
    facility::FacilityModel m_model;
    std::unique_ptr<facility::LedgerCollector> m_ledgerCollector; // none when its database fails
    ManagerLogin m_login;
    qint64 m_seq = 0;
    QTimer m_soon;
    HttpFace m_http;
    LiveChannel m_live; // after m_http: its sockets go first
};

} // namespace spinlane::web
