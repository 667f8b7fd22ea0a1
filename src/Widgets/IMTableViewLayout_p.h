#pragma once

// The table's row geometry: heights of every row (measured or estimated) in a Fenwick tree, so
// the top of any row and the row at any height are found in O(log n) and a 10,000-row list opens
// without measuring every row.
#include <QVector>
#include <algorithm>

class IMTableViewLayout {
public:
    //! Resets to `count` rows of height `estimate`, none measured.
    void reset(int count, qreal estimate)
    {
        m_heights.fill(estimate, count);
        m_measured.fill(false, count);
        rebuild();
    }
    int count() const { return m_heights.size(); }
    qreal height(int row) const { return m_heights.value(row); }
    bool isMeasured(int row) const { return m_measured.value(row); }
    //! Sets a row's height; returns the change.
    qreal setHeight(int row, qreal h, bool measured = true)
    {
        if (row < 0 || row >= m_heights.size())
            return 0;
        const qreal delta = h - m_heights[row];
        m_heights[row] = h;
        m_measured[row] = measured;
        if (delta != 0)
            for (int i = row + 1; i <= m_tree.size() - 1; i += i & -i)
                m_tree[i] += delta;
        return delta;
    }
    void forget(int row)
    {
        if (row >= 0 && row < m_measured.size())
            m_measured[row] = false;
    }
    //! Inserts a row of height `h` (not measured) before `row`.
    void insert(int row, qreal h)
    {
        row = std::clamp(row, 0, int(m_heights.size()));
        m_heights.insert(row, h);
        m_measured.insert(row, false);
        rebuild();
    }
    void remove(int row)
    {
        if (row < 0 || row >= m_heights.size())
            return;
        m_heights.remove(row);
        m_measured.remove(row);
        rebuild();
    }
    //! Top of `row` (the sum of the heights above it); `row` may be count() for the total.
    qreal top(int row) const
    {
        qreal sum = 0;
        for (int i = std::min(row, int(m_heights.size())); i > 0; i -= i & -i)
            sum += m_tree[i];
        return sum;
    }
    qreal total() const { return top(m_heights.size()); }
    //! The row whose span [top, top + height) holds `y` (the last row for y past the end, -1 when empty).
    int rowAt(qreal y) const
    {
        const int n = m_heights.size();
        if (n == 0)
            return -1;
        if (y < 0)
            return 0;
        int pos = 0;
        qreal rest = y;
        int step = 1;
        while (step * 2 <= n)
            step *= 2;
        for (; step > 0; step /= 2) {
            if (pos + step <= n && m_tree[pos + step] <= rest) {
                pos += step;
                rest -= m_tree[pos];
            }
        }
        // `pos` rows lie entirely at or above y; skip rows of height 0 that start exactly at y.
        return std::min(pos, n - 1);
    }

private:
    void rebuild()
    {
        const int n = m_heights.size();
        m_tree.fill(0, n + 1);
        for (int i = 1; i <= n; ++i) {
            m_tree[i] += m_heights[i - 1];
            const int parent = i + (i & -i);
            if (parent <= n)
                m_tree[parent] += m_tree[i];
        }
    }
    QVector<qreal> m_heights;
    QVector<bool> m_measured;
    QVector<qreal> m_tree; // 1-based Fenwick tree of the heights
};
