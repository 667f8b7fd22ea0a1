#include "IMSocketIOAckTable.h"

#include <algorithm>
#include <cmath>
#include <vector>

IMSocketIOAckTable::IMSocketIOAckTable(QObject *parent)
    : QObject(parent)
{
    m_clock.start();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &IMSocketIOAckTable::expire);
}

IMSocketIOAckTable::~IMSocketIOAckTable() { failAll(); }

QVariantList IMSocketIOAckTable::noAck() { return {QStringLiteral("NO ACK")}; }

void IMSocketIOAckTable::add(qint64 id, double timeoutSeconds, IMSocket::AckCallback callback)
{
    Entry e;
    e.callback = std::move(callback);
    if (timeoutSeconds > 0 && std::isfinite(timeoutSeconds)) {
        e.deadline = m_clock.elapsed() + qint64(std::ceil(qMin(timeoutSeconds, 1e9) * 1000.0));
        m_deadlines.emplace(e.deadline, id);
    }
    m_entries.insert(id, std::move(e));
    arm();
}

bool IMSocketIOAckTable::answer(qint64 id, const QVariantList &items)
{
    auto it = m_entries.find(id);
    if (it == m_entries.end())
        return false;
    Entry e = std::move(it.value());
    m_entries.erase(it);
    if (e.deadline >= 0)
        m_deadlines.erase({e.deadline, id});
    // The timer is left armed: firing early with nothing due only re-arms it.
    if (e.callback)
        e.callback(items);
    return true;
}

void IMSocketIOAckTable::failAll()
{
    QHash<qint64, Entry> entries;
    entries.swap(m_entries);
    m_deadlines.clear();
    m_timer.stop();
    m_armedFor = -1;
    // Oldest first, so callers see their failures in the order they asked.
    std::vector<qint64> ids(entries.keyBegin(), entries.keyEnd());
    std::sort(ids.begin(), ids.end());
    for (qint64 id : ids) {
        auto cb = std::move(entries[id].callback);
        if (cb)
            cb(noAck());
    }
}

void IMSocketIOAckTable::failUnbounded()
{
    std::vector<std::pair<qint64, IMSocket::AckCallback>> due;
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (it->deadline < 0) {
            due.emplace_back(it.key(), std::move(it->callback));
            it = m_entries.erase(it);
        } else {
            ++it;
        }
    }
    std::sort(due.begin(), due.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    for (auto &d : due)
        if (d.second)
            d.second(noAck());
}

void IMSocketIOAckTable::arm()
{
    if (m_deadlines.empty()) {
        m_timer.stop();
        m_armedFor = -1;
        return;
    }
    const qint64 next = m_deadlines.begin()->first;
    if (m_timer.isActive() && m_armedFor >= 0 && m_armedFor <= next)
        return;
    m_armedFor = next;
    m_timer.start(int(qBound<qint64>(qint64(0), next - m_clock.elapsed(), qint64(24) * 3600 * 1000)));
}

void IMSocketIOAckTable::expire()
{
    m_armedFor = -1;
    const qint64 now = m_clock.elapsed();
    std::vector<IMSocket::AckCallback> due;
    while (!m_deadlines.empty() && m_deadlines.begin()->first <= now) {
        const qint64 id = m_deadlines.begin()->second;
        m_deadlines.erase(m_deadlines.begin());
        auto it = m_entries.find(id);
        if (it != m_entries.end()) {
            due.push_back(std::move(it->callback));
            m_entries.erase(it);
        }
    }
    arm();
    for (auto &cb : due)
        if (cb)
            cb(noAck());
}
