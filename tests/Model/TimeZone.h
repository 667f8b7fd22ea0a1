#pragma once

#include <QByteArray>
#include <cstdlib>
#include <ctime>

//! Switches the process's local time zone for the lifetime of the object.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char *zone)
        : m_old(qgetenv("TZ"))
        , m_hadOld(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~ScopedTimeZone()
    {
        if (m_hadOld)
            qputenv("TZ", m_old);
        else
            qunsetenv("TZ");
        tzset();
    }
    ScopedTimeZone(const ScopedTimeZone &) = delete;
    ScopedTimeZone &operator=(const ScopedTimeZone &) = delete;

private:
    QByteArray m_old;
    bool m_hadOld;
};
