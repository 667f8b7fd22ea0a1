#pragma once

#include <QtGlobal>
#include <functional>

//! Reconnection delays: wait * 2^attempt, moved up or down by a random share of itself
//! (`factor`), capped at `maxMs`. Pure value code.
class IMSocketIOBackoff {
public:
    IMSocketIOBackoff(qint64 minMs = 1000, qint64 maxMs = 5000, double factor = 0.5);
    //! The delay before try number `attempt` (0 for the first try), in milliseconds.
    qint64 duration(int attempt) const;
    //! Replaces the random source (values in [0, 1)); for tests.
    void setRandom(std::function<double()> random) { m_random = std::move(random); }

private:
    qint64 m_min;
    qint64 m_max;
    double m_factor;
    std::function<double()> m_random;
};
