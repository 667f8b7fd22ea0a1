#include "IMUserDefaults.h"

#include <QCoreApplication>
#include <QSettings>
#include <mutex>

struct IMUserDefaults::Private {
    mutable std::mutex mutex;
    std::unique_ptr<QSettings> settings;

    // The QSettings object belongs to no thread: it never gets the deferred-sync event that
    // Qt would otherwise deliver on its creation thread, outside our lock. Writes reach disk
    // through `write()` and when the settings are replaced or destroyed.
    void open(const QString &path)
    {
        settings
            = path.isNull() ? std::make_unique<QSettings>() : std::make_unique<QSettings>(path, QSettings::IniFormat);
        settings->moveToThread(nullptr);
    }
};

IMUserDefaults::IMUserDefaults()
    : d(std::make_unique<Private>())
{
    d->open(QString());
}

IMUserDefaults::~IMUserDefaults()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->settings.reset();
}

IMUserDefaults *IMUserDefaults::standardUserDefaults()
{
    // Destroyed at exit, which writes what is still pending.
    static IMUserDefaults defaults;
    return &defaults;
}

void IMUserDefaults::setSettingsFile(const QString &path)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->settings->sync();
    d->open(path);
}

QString IMUserDefaults::settingsFile() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->settings->fileName();
}

QString IMUserDefaults::transformKey(const QString &property)
{
    if (property.isEmpty())
        return QStringLiteral("OruChat");
    return QStringLiteral("OruChat%1").arg(property.left(1).toUpper() + property.mid(1));
}

bool IMUserDefaults::write()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->settings->sync();
    return d->settings->status() == QSettings::NoError;
}

QVariant IMUserDefaults::value(const QString &property) const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->settings->value(transformKey(property));
}

void IMUserDefaults::setValue(const QString &property, const QVariant &value)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    // A null text is "nothing", as an absent value is (QVariant::isNull() no longer says so).
    const bool nothing
        = !value.isValid() || value.isNull() || (value.typeId() == QMetaType::QString && value.toString().isNull());
    if (nothing)
        d->settings->remove(transformKey(property));
    else
        d->settings->setValue(transformKey(property), value);
}

QString IMUserDefaults::clientID() const { return value(QStringLiteral("clientID")).toString(); }
void IMUserDefaults::setClientID(const QString &clientID) { setValue(QStringLiteral("clientID"), clientID); }
bool IMUserDefaults::firstTimeLaunch() const { return value(QStringLiteral("firstTimeLaunch")).toBool(); }
void IMUserDefaults::setFirstTimeLaunch(bool firstTimeLaunch)
{
    setValue(QStringLiteral("firstTimeLaunch"), firstTimeLaunch);
}
QVariantMap IMUserDefaults::currentUser() const { return value(QStringLiteral("currentUser")).toMap(); }
void IMUserDefaults::setCurrentUser(const QVariantMap &currentUser)
{
    setValue(QStringLiteral("currentUser"), currentUser);
}
QString IMUserDefaults::token() const { return value(QStringLiteral("token")).toString(); }
void IMUserDefaults::setToken(const QString &token) { setValue(QStringLiteral("token"), token); }
QVariantList IMUserDefaults::messageCache() const { return value(QStringLiteral("messageCache")).toList(); }
void IMUserDefaults::setMessageCache(const QVariantList &messageCache)
{
    setValue(QStringLiteral("messageCache"), messageCache);
}
QVariantList IMUserDefaults::log() const { return value(QStringLiteral("log")).toList(); }
void IMUserDefaults::setLog(const QVariantList &log) { setValue(QStringLiteral("log"), log); }
bool IMUserDefaults::hasLog() const { return contains(QStringLiteral("log")); }

bool IMUserDefaults::contains(const QString &property) const
{
    // An empty list is kept in an INI file as "@Invalid()": the key tells that it is there.
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->settings->contains(transformKey(property));
}
