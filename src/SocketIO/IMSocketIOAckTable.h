#pragma once

#include "IMSocket.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <set>
#include <utility>

//! The acknowledgements a client waits for: each callback runs exactly once, with the answer,
//! with ["NO ACK"] at its deadline, or with ["NO ACK"] when failed early. One timer serves all.
//! Lives on the client's thread; callbacks run there, never while the table is being changed.
class IMSocketIOAckTable : public QObject {
    Q_OBJECT
public:
    explicit IMSocketIOAckTable(QObject *parent = nullptr);
    //! Fails whatever is still waiting.
    ~IMSocketIOAckTable() override;

    //! The list a callback receives when no answer came.
    static QVariantList noAck();

    //! Waits for the answer to `id` for `timeoutSeconds` (0: no deadline).
    void add(qint64 id, double timeoutSeconds, IMSocket::AckCallback callback);
    //! Delivers the answer to `id`; false when nothing waits for that id.
    bool answer(qint64 id, const QVariantList &items);
    //! Fails every waiting callback now.
    void failAll();
    //! Fails the callbacks that have no deadline (their answer can no longer come).
    void failUnbounded();
    //! The number of callbacks waiting.
    int size() const { return int(m_entries.size()); }

private:
    struct Entry {
        IMSocket::AckCallback callback;
        qint64 deadline = -1;
    };
    void arm();
    void expire();

    QHash<qint64, Entry> m_entries;
    std::set<std::pair<qint64, qint64>> m_deadlines;
    QElapsedTimer m_clock;
    QTimer m_timer;
    qint64 m_armedFor = -1;
};
