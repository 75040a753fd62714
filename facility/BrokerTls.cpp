#include "facility/BrokerTls.h"

#include <QHostAddress>

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <utility>

namespace spinlane::facility {

namespace {

// The server name goes into the client's first message, which OpenSSL writes after this call.
// libmosquitto names the address it was given there: name the broker instead.
void nameTheBroker(const SSL* ssl, int where, int)
{
    if (!(where & SSL_CB_HANDSHAKE_START))
        return;
    const auto* tls = static_cast<const QByteArray*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    char* name = tls->isEmpty() ? nullptr : const_cast<char*>(tls->constData()); // only copied
    SSL_set_tlsext_host_name(const_cast<SSL*>(ssl), name);
}

} // namespace

BrokerTls::BrokerTls()
    : m_context(SSL_CTX_new(TLS_client_method()))
{
    SSL_CTX_set_verify(m_context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_app_data(m_context, &m_name);
    SSL_CTX_set_info_callback(m_context, &nameTheBroker);
    SSL_CTX_set_cert_verify_callback(m_context, &BrokerTls::verify, this);
}

BrokerTls::~BrokerTls() { SSL_CTX_free(m_context); }

void BrokerTls::expect(const QString& host)
{
    X509_VERIFY_PARAM* param = SSL_CTX_get0_param(m_context);
    X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    if (QHostAddress(host).isNull()) {
        m_name = host.toUtf8();
        X509_VERIFY_PARAM_set1_ip(param, nullptr, 0);
        X509_VERIFY_PARAM_set1_host(param, m_name.constData(), 0);
    } else {
        m_name.clear();
        X509_VERIFY_PARAM_set1_host(param, nullptr, 0);
        X509_VERIFY_PARAM_set1_ip_asc(param, host.toLatin1().constData());
    }
}

QString BrokerTls::takeRefusal() { return std::exchange(m_refusal, QString()); }

// The whole chain's check as OpenSSL makes it, against the name or address expected, with the
// reason kept when it fails. libmosquitto's own call for each certificate is left out: it only
// adds the check of the name against the address it was given, which is off here.
int BrokerTls::verify(x509_store_ctx_st* store, void* self)
{
    X509_STORE_CTX_set_verify_cb(store, [](int ok, X509_STORE_CTX*) { return ok; });
    const int ok = X509_verify_cert(store);
    if (ok <= 0)
        static_cast<BrokerTls*>(self)->m_refusal =
            QString::fromUtf8(X509_verify_cert_error_string(X509_STORE_CTX_get_error(store)));
    return ok;
}

} // namespace spinlane::facility
