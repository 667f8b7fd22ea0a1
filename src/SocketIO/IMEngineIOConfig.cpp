#include "IMEngineIOConfig.h"

#include <QAtomicInteger>
#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QSslSocket>

Q_LOGGING_CATEGORY(lcSocketIO, "parlo.socketio", QtWarningMsg)

namespace {
// A cache-busting token, unique per request within the process.
QString requestToken()
{
    static QAtomicInteger<quint32> counter;
    const quint64 n = (quint64(QDateTime::currentMSecsSinceEpoch()) << 12) + (counter.fetchAndAddRelaxed(1) & 0xfff);
    return QString::number(n, 36);
}
} // namespace

QUrl IMEngineIOConfig::transportUrl(const QString &transport, const QString &sid) const
{
    QUrl u = url;
    const bool ws = transport == QLatin1String("websocket");
    if (ws)
        u.setScheme(url.scheme() == QLatin1String("https") ? QStringLiteral("wss") : QStringLiteral("ws"));
    QUrlQuery q(url);
    for (const auto &item : query)
        q.addQueryItem(item.first, item.second);
    q.addQueryItem(QStringLiteral("EIO"), QString::number(eio));
    q.addQueryItem(QStringLiteral("transport"), transport);
    if (!ws) {
        q.addQueryItem(QStringLiteral("t"), requestToken());
        if (eio == 3)
            q.addQueryItem(QStringLiteral("b64"), QStringLiteral("1"));
    }
    if (!sid.isEmpty())
        q.addQueryItem(QStringLiteral("sid"), sid);
    u.setQuery(q);
    return u;
}

QNetworkRequest IMEngineIOConfig::request(const QUrl &target) const
{
    QNetworkRequest req(target);
    for (const auto &h : headers)
        req.setRawHeader(h.first, h.second);
    QStringList all = cookies;
    if (nam && nam->cookieJar()) {
        QUrl httpUrl = target;
        if (httpUrl.scheme() == QLatin1String("ws"))
            httpUrl.setScheme(QStringLiteral("http"));
        else if (httpUrl.scheme() == QLatin1String("wss"))
            httpUrl.setScheme(QStringLiteral("https"));
        const auto jar = nam->cookieJar()->cookiesForUrl(httpUrl);
        for (const QNetworkCookie &c : jar)
            all.append(QString::fromUtf8(c.toRawForm(QNetworkCookie::NameAndValueOnly)));
    }
    if (!all.isEmpty())
        req.setRawHeader("Cookie", all.join(QStringLiteral("; ")).toUtf8());
    // The jar's cookies are already in the header above.
    req.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    req.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    req.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain;charset=UTF-8"));
    if (target.scheme() == QLatin1String("https") || target.scheme() == QLatin1String("wss")) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        if (selfSigned)
            ssl.setPeerVerifyMode(QSslSocket::VerifyNone);
        req.setSslConfiguration(ssl);
    }
    return req;
}
