#include "web/HttpRequest.h"

#include <QUrl>

namespace spinlane::web {
namespace {

bool isToken(QByteArrayView text)
{
    if (text.isEmpty())
        return false;
    for (const char c : text) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                        || QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
        if (!ok)
            return false;
    }
    return true;
}

bool hasControl(QByteArrayView text)
{
    for (const char c : text) {
        if ((uchar(c) < 0x20 && c != '\t') || c == 0x7f)
            return true;
    }
    return false;
}

bool listHas(QByteArrayView value, QByteArrayView token)
{
    for (const QByteArray& part : value.toByteArray().split(',')) {
        if (part.trimmed().compare(token, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

QByteArray hostOfAuthority(QByteArrayView authority)
{
    QByteArray host;
    if (authority.startsWith('[')) {
        const qsizetype close = authority.indexOf(']');
        if (close < 0 || (close + 1 < authority.size() && authority[close + 1] != ':'))
            return {};
        host = authority.sliced(1, close - 1).toByteArray();
    } else {
        const qsizetype colon = authority.indexOf(':');
        host = authority.first(colon < 0 ? authority.size() : colon).toByteArray();
    }
    for (const char c : host) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                        || c == '.' || c == '-' || c == '_' || c == ':';
        if (!ok)
            return {};
    }
    return host.toLower();
}

HttpRequest parseHttpRequest(QByteArrayView head)
{
    HttpRequest request;
    const auto refuse = [&request](const char* why) {
        request.problem = why;
        return request;
    };
    const qsizetype lineEnd = head.indexOf("\r\n");
    const QByteArrayView line = head.first(lineEnd);
    const QList<QByteArray> parts = line.toByteArray().split(' ');
    if (parts.size() != 3 || !isToken(parts[0]) || parts[1].isEmpty())
        return refuse("a request line of METHOD TARGET VERSION");
    request.method = parts[0];
    if (parts[2] == "HTTP/1.0")
        request.http10 = true;
    else if (parts[2] != "HTTP/1.1")
        return refuse("HTTP/1.1 or HTTP/1.0 only");
    const QByteArray& target = parts[1];
    if (hasControl(target))
        return refuse("control characters in the target");
    QUrl url;
    if (target.startsWith('/')) {
        url = QUrl::fromEncoded("http://host" + target);
    } else if (target.startsWith("http://") || target.startsWith("https://")) {
        url = QUrl::fromEncoded(target);
        request.absoluteUri = true;
        request.host = url.host().toUtf8().toLower();
        if (request.host.isEmpty())
            return refuse("an absolute URI without a host");
    } else {
        return refuse("a target that is a path or an absolute URI");
    }
    request.path = url.path();

    int hosts = 0;
    int lengths = 0;
    QByteArray connection;
    QByteArray upgrade;
    qsizetype at = lineEnd + 2;
    while (at < head.size()) {
        const qsizetype end = head.indexOf("\r\n", at);
        const QByteArrayView field = head.sliced(at, end - at);
        at = end + 2;
        const qsizetype colon = field.indexOf(':');
        if (colon <= 0 || !isToken(field.first(colon)))
            return refuse("a header that is not NAME: VALUE");
        const QByteArray name = field.first(colon).toByteArray().toLower();
        const QByteArray value = field.sliced(colon + 1).toByteArray().trimmed();
        if (hasControl(value))
            return refuse("control characters in a header");
        if (name == "host") {
            ++hosts;
            const QByteArray host = hostOfAuthority(value);
            if (host.isEmpty())
                return refuse("a Host that is not a host name");
            if (!request.absoluteUri)
                request.host = host;
        } else if (name == "content-length") {
            ++lengths;
            bool ok = false;
            const qint64 length = value.toLongLong(&ok);
            if (!ok || length < 0 || value.startsWith('+'))
                return refuse("a Content-Length that is not a number");
            request.contentLength = length;
            request.hasBody = request.hasBody || length > 0;
        } else if (name == "transfer-encoding") {
            request.hasBody = true;
            request.transferEncoding = true;
        } else if (name == "content-type") {
            request.contentType = value.split(';').first().trimmed().toLower();
        } else if (name == "cookie") {
            request.cookie = value;
        } else if (name == "connection") {
            connection += value + ',';
        } else if (name == "upgrade") {
            upgrade = value;
        } else if (name == "origin") {
            request.origin = value;
        }
    }
    if (hosts > 1)
        return refuse("more than one Host");
    if (hosts == 0 && !request.http10)
        return refuse("HTTP/1.1 without Host");
    if (lengths > 1)
        return refuse("more than one Content-Length");
    request.keepAlive = request.http10 ? listHas(connection, "keep-alive")
                                       : !listHas(connection, "close");
    request.upgradeToWebSocket =
        listHas(connection, "upgrade") && listHas(upgrade, "websocket");
    return request;
}

} // namespace spinlane::web
