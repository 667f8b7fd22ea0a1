// The request transport: virtual HTTP requests carried as Socket.IO events with acknowledgements.
#include "Parlo_p.h"

#include "IMDispatch.h"
#include "IMPlatform.h"

#include <QJsonDocument>
#include <QJsonParseError>

namespace {
const QString kNoAck = QStringLiteral("NO ACK");
constexpr int kRetryLimit = 3;

QString methodName(uint method)
{
    switch (method) {
    case 0:
        return QStringLiteral("get");
    case 1:
        return QStringLiteral("post");
    case 2:
        return QStringLiteral("put");
    case 3:
        return QStringLiteral("delete");
    default:
        return QString();
    }
}

QString textOrEmpty(const QVariant &body)
{
    if (!body.isValid() || body.isNull())
        return QStringLiteral("");
    return body.typeId() == QMetaType::QString ? body.toString() : IMDescription(body);
}

IMError statusError(int code, const QVariant &body)
{
    const QString text = textOrEmpty(body);
    // The literal key "NSLocalizedDescriptionKey" is part of the record callers read.
    return IMError::parlo(code, QVariantMap{{QStringLiteral("info"), body.isNull() ? QVariant(text) : body},
                                            {QStringLiteral("NSLocalizedDescriptionKey"), body.isNull() ? QVariant(text) : body}});
}
} // namespace

QVariantMap Parlo::header() const
{
    const QString id = clientID();
    const QString tok = token();
    return QVariantMap{{kParloApiKey, d->apiKey},
                       {kParloClientKey, d->clientKey},
                       {kParloClientID, id.isNull() ? QStringLiteral("") : id},
                       {kParloToken, tok.isNull() ? QStringLiteral("") : tok}};
}

bool Parlo::isPostRetryListAPI(const QVariantMap &item) const
{
    static const QStringList retryable{QStringLiteral("/client/chatin/"), QStringLiteral("/client/")};
    return retryable.contains(item.value(QStringLiteral("url")).toString());
}

void Parlo::emitWithMethod(uint method, const QVariantMap &item, Success success, Failure failure)
{
    if (!d->socket || d->socket->status() != IMSocket::Status::Connected) {
        if (failure)
            failure(IMError::parlo(400, QStringLiteral("not connected")));
        return;
    }
    emitWithMethod(method, 0, item, std::move(success), std::move(failure));
}

void Parlo::emitWithMethod(uint method, int counter, const QVariantMap &item, Success success, Failure failure)
{
    const QString event = methodName(method);
    IMDispatchMainAsync([] { IMPlatform::instance()->setNetworkActivityIndicatorVisible(true); });
    if (event.isNull() || !d->socket) {
        // An unknown method or no connection at all: nothing can be sent, fail like a lost request.
        IMDispatchMainAsync([success, failure, event] {
            IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
            if (failure)
                failure(event.isNull() ? IMError::parlo(400, QStringLiteral("unknown method"))
                                       : IMError::parlo(999, kNoAck));
        });
        return;
    }

    QPointer<Parlo> self(this);
    auto onAck = [self, method, counter, item, success, failure](const QVariantList &data) {
        if (self && !data.isEmpty() && data.first().typeId() == QMetaType::QString
            && data.first().toString() != kNoAck) {
            QJsonParseError error;
            const QJsonDocument doc = QJsonDocument::fromJson(data.first().toString().toUtf8(), &error);
            self->PARLO_LOG("data", doc.isNull() ? data.first() : doc.toVariant());
        }
        IMDispatchMainAsync([self, method, counter, item, success, failure, data] {
            IMPlatform::instance()->setNetworkActivityIndicatorVisible(false);
            const QVariant first = data.value(0);
            if (first.typeId() == QMetaType::QString && first.toString() == kNoAck) {
                // A request the facade can no longer carry (it is being destroyed) ends here.
                const bool retryable = method != 1 || (self && self->isPostRetryListAPI(item));
                if (self && counter < kRetryLimit && retryable) {
                    self->PARLO_LOG("data", QStringLiteral("api retry NO.%1").arg(counter));
                    self->emitWithMethod(method, counter + 1, item, success, failure);
                    return;
                }
                if (failure)
                    failure(IMError::parlo(999, kNoAck));
                return;
            }
            if (data.isEmpty()) {
                if (failure)
                    failure(IMError::parlo(0, QStringLiteral("")));
                return;
            }
            if (first.typeId() != QMetaType::QVariantMap) {
                // Not a response object: nothing says whether the server accepted the request.
                if (failure)
                    failure(statusError(0, first));
                return;
            }
            const QVariantMap response = first.toMap();
            const QVariant body = response.value(QStringLiteral("body"));
            const auto status = response.find(QStringLiteral("statusCode"));
            const bool hasStatus = status != response.end();
            const bool ok = !hasStatus || (!status->isNull() && status->toInt() < 400);
            if (ok) {
                if (success)
                    success(body);
                return;
            }
            if (self)
                self->PARLO_LOG("data", QStringLiteral("request fail :\n%1").arg(IMDescription(body)));
            if (failure)
                failure(statusError(status->isNull() ? 0 : status->toInt(), body));
        });
    };
    d->socket->emitWithAck(event, QVariantList{item}, double(d->timeout), std::move(onAck));
}

void Parlo::execQueue()
{
    QList<Block> &queue = queueArray();
    while (!queue.isEmpty()) {
        Block block = queue.first();
        if (block)
            block();
        queue.removeFirst();
    }
}
