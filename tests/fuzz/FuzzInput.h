#pragma once

// What every fuzz target shares: the input as bytes and as text, and a Qt application object
// for code that asks for one (time zones, the main thread).

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <cstddef>
#include <cstdint>

inline QByteArray fuzzBytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

inline void fuzzApplication()
{
    static int argc = 1;
    static char name[] = "parlo-fuzz";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}
