#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// One HTTP/1.x request's line and headers, read strictly: what a browser sends is accepted, and
// anything a proxy or a server could read in two ways (no Host in HTTP/1.1, a second
// Content-Length, folded or malformed headers, an absolute URI) is marked for a 400.
namespace spinlane::web {

struct HttpRequest {
    QByteArray method;
    QString path; // decoded, without query
    QByteArray host; // from Host, or from an absolute URI: lower case, without port
    bool absoluteUri = false;
    QByteArray origin; // the Origin header as sent, empty when there is none
    bool http10 = false;
    bool keepAlive = true; // otherwise the connection ends after the answer
    bool upgradeToWebSocket = false;
    bool hasBody = false; // a Content-Length above 0 or any Transfer-Encoding
    bool transferEncoding = false; // a body of unknown length, never read here
    qint64 contentLength = 0;
    QByteArray contentType; // lower case, without parameters
    QByteArray cookie; // the Cookie header as sent
    QByteArray problem; // why the request is refused with 400; empty when it is well formed
};

// `head` is the request up to and including the CRLF before the empty line.
HttpRequest parseHttpRequest(QByteArrayView head);

// "name", "name:port", "[v6]:port" -> the name in lower case; empty when malformed.
QByteArray hostOfAuthority(QByteArrayView authority);

} // namespace spinlane::web
