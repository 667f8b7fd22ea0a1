#pragma once

// The facade's logging scheme: records kept in the persisted log and printed to the console.

#include "IMLog.h"

#include <QVariantMap>
#include <atomic>

//! Keeps log records in the persisted log (newest first) when `log` is on and prints them when
//! `printLog` is on. Both switches may be read from any thread.
class ParloLogger {
public:
    //! Whether records are kept in the persisted log.
    bool log() const { return m_log; }
    //! Turns the persisted log on or off.
    void setLog(bool on) { m_log = on; }
    //! Whether records are printed to the console.
    bool printLog() const { return m_printLog; }
    //! Turns printing on or off.
    void setPrintLog(bool on) { m_printLog = on; }
    //! Keeps and prints `record` as the switches say.
    void logDictionaryIfNeeded(const QVariantMap &record);
    //! Builds the record with `make` and hands it on, only when a switch is on.
    template <typename Make> void lazily(const Make &make)
    {
        if (m_log || m_printLog)
            logDictionaryIfNeeded(make());
    }

private:
    std::atomic<bool> m_log {false};
    std::atomic<bool> m_printLog {false};
};

//! A log record: {"line": "<File.cpp:N>", key: the "%@" text of value}.
#define PARLO_LOG_RECORD(key, value)                                                                                   \
    QVariantMap                                                                                                        \
    {                                                                                                                  \
        {QStringLiteral("line"), IM_LOG_LINE()}, { QStringLiteral(key), IMDescription(QVariant(value)) }               \
    }

//! Hands `logger` a log record, built only when logging is on.
#define PARLO_LOG(logger, key, value) (logger).lazily([&] { return PARLO_LOG_RECORD(key, value); })
