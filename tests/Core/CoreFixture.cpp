#include "CoreFixture.h"

#include <QFile>
#include <QRegularExpression>
#include <QSslKey>
#include <QSslServer>
#include <QTcpSocket>

Recorder::Recorder()
{
    m_token = IMNotificationCenter::defaultCenter()->addObserver(QString(), [this](const IMNotification &n) {
        if (n.name.startsWith(QLatin1String("Parlo")) || n.name == QLatin1String("didChangeConnectStatus")) {
            events << "n:" + n.name;
            notifications << n;
        }
    });
}

Recorder::~Recorder() { IMNotificationCenter::defaultCenter()->removeObserver(m_token); }

void Recorder::ParloDidChangeConnectStatus(int status, const QString &message)
{
    events << QStringLiteral("d:ChangeConnectStatus %1 %2").arg(status).arg(message);
}

QList<IMNotification> Recorder::named(const QString &name) const
{
    QList<IMNotification> out;
    for (const IMNotification &n : notifications)
        if (n.name == name)
            out << n;
    return out;
}

void CoreTest::SetUpTestSuite()
{
    static const QString dir = makeTempDir();
    IMPlatform::instance()->setDocumentsPath(dir + "/data");
    IMPlatform::instance()->setTemporaryPath(dir + "/cache");
    IMUserDefaults::standardUserDefaults()->setSettingsFile(dir + "/settings.ini");
}

void CoreTest::SetUp()
{
    IMDB::sharedInstance()->resetDatabase();
    spinFor(20); // the store is re-created from the main queue
    IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
    settings->setClientID(QStringLiteral("me"));
    settings->setToken(QStringLiteral("tok"));
    settings->setCurrentUser(QVariantMap {{"clientID", "me"}});
    settings->setLog(QVariantList());
    settings->write();
    parlo = std::make_unique<Parlo>();
    parlo->setApiKey(QStringLiteral("api"));
    parlo->setClientKey(QStringLiteral("client"));
    parlo->setDelegate(&recorder);
}

void CoreTest::TearDown()
{
    parlo.reset();
    spinFor(10);
}

void CoreTest::connectScripted()
{
    parlo->setSocketFactory([this](const QUrl &, const QVariantMap &) {
        socket = new ScriptedSocket;
        return socket;
    });
    parlo->connectWithURL(QStringLiteral("http://127.0.0.1:1"), {}, [] {});
    socket->setStatus(IMSocket::Status::Connected);
    socket->push(QStringLiteral("connect"), {QStringLiteral("/")});
    recorder.events.clear();
    recorder.notifications.clear();
}

LocalHttpServer::LocalHttpServer(std::function<QByteArray(const QByteArray &)> answer, bool tls)
    : m_answer(std::move(answer))
    , m_tls(tls)
{
    if (tls) {
        QFile cert(QStringLiteral(PARLO_SOURCE_DIR "/tests/support/tls/selfsigned.crt"));
        QFile key(QStringLiteral(PARLO_SOURCE_DIR "/tests/support/tls/selfsigned.key"));
        cert.open(QIODevice::ReadOnly);
        key.open(QIODevice::ReadOnly);
        QSslConfiguration config = QSslConfiguration::defaultConfiguration();
        config.setLocalCertificate(QSslCertificate(cert.readAll()));
        config.setPrivateKey(QSslKey(key.readAll(), QSsl::Rsa));
        auto ssl = std::make_unique<QSslServer>();
        ssl->setSslConfiguration(config);
        m_server = std::move(ssl);
    } else {
        m_server = std::make_unique<QTcpServer>();
    }
    QObject::connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            auto request = std::make_shared<QByteArray>();
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, request] {
                request->append(socket->readAll());
                const qsizetype head = request->indexOf("\r\n\r\n");
                static const QRegularExpression length(QStringLiteral("(?i)content-length: *(\\d+)"));
                if (head < 0
                    || request->size()
                        < head + 4 + length.match(QString::fromLatin1(request->left(head))).captured(1).toLongLong())
                    return;
                socket->write(m_answer(*request));
                socket->disconnectFromHost();
            });
        }
    });
    m_server->listen(QHostAddress::LocalHost, 0);
}

QString LocalHttpServer::url() const
{
    return QStringLiteral("%1://127.0.0.1:%2").arg(m_tls ? "https" : "http").arg(m_server->serverPort());
}

QVariantMap roomDict(const QString &id, const QString &lastMessageTime)
{
    return QVariantMap {{"id", id}, {"name", "Room " + id}, {"lastMessageTime", lastMessageTime}};
}

QVariantMap messageDict(
    const QString &id, const QString &roomID, const QString &senderID, qint64 idFromSender, const QString &createdAt)
{
    return QVariantMap {{"id", id}, {"message", "hello " + id}, {"messageType", "text"},
        {"room", roomDict(roomID, createdAt)}, {"sender", QVariantMap {{"clientID", senderID}}},
        {"idFromSender", idFromSender}, {"createdAt", createdAt}};
}

QStringList logLines()
{
    QStringList lines;
    for (const QVariant &record : IMUserDefaults::standardUserDefaults()->log())
        lines << record.toMap().value("data").toString();
    return lines;
}

QStringList idsOf(const QList<IMRoomPtr> &rooms)
{
    QStringList ids;
    for (const IMRoomPtr &r : rooms)
        ids << r->objectID();
    return ids;
}

void storeRooms(const QList<QPair<QString, QString>> &rooms)
{
    QVariantList dicts;
    for (const auto &[id, time] : rooms)
        dicts << roomDict(id, time);
    IMDB::sharedInstance()->saveRooms(IMRoom::arrayOfModelsFromDictionaries(dicts));
}
