#include "IMSocketIOBackoff.h"

#include <QRandomGenerator>
#include <cmath>

IMSocketIOBackoff::IMSocketIOBackoff(qint64 minMs, qint64 maxMs, double factor)
    : m_min(qMax<qint64>(0, minMs))
    , m_max(qMax<qint64>(0, maxMs))
    , m_factor(qBound(0.0, factor, 1.0))
    , m_random([] { return QRandomGenerator::global()->generateDouble(); })
{
}

qint64 IMSocketIOBackoff::duration(int attempt) const
{
    // Doubles cannot overflow here; the cap applies after the jitter.
    double ms = double(m_min) * std::pow(2.0, qBound(0, attempt, 62));
    if (m_factor > 0) {
        const double r = m_random();
        const double deviation = std::floor(r * m_factor * ms);
        ms = (int(std::floor(r * 10)) & 1) == 0 ? ms - deviation : ms + deviation;
    }
    return qint64(qMin(ms, double(m_max)));
}
