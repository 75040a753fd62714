#pragma once

#include <QByteArray>
#include <QString>

struct ssl_ctx_st;
struct x509_store_ctx_st;

// The TLS context of a connection to the broker. libmosquitto is given an address looked up
// beforehand, so its own check of the certificate would compare it with that address: this
// context checks it against the broker's configured name instead (or against the address when
// an address was configured), names the broker in the handshake (SNI) and keeps why it refused a
// certificate.
namespace spinlane::facility {

class BrokerTls {
public:
    BrokerTls();
    ~BrokerTls();
    BrokerTls(const BrokerTls&) = delete;
    BrokerTls& operator=(const BrokerTls&) = delete;

    // OpenSSL's context; whoever keeps it takes a reference of their own.
    ssl_ctx_st* context() const { return m_context; }
    // The name (or address) the broker's certificate must carry.
    void expect(const QString& host);
    // Why the last certificate was refused ("hostname mismatch", ...), and forgets it.
    QString takeRefusal();

private:
    static int verify(x509_store_ctx_st* store, void* self);

    ssl_ctx_st* m_context = nullptr;
    QByteArray m_name; // for SNI; empty when the broker was configured by address
    QString m_refusal;
};

} // namespace spinlane::facility
