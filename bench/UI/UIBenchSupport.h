#pragma once

// Timing helpers for the screens' benchmarks: frames are timed as "process events, then render
// the widget", the work a real frame does; figures are medians and p99s of several rounds.
#include <QApplication>
#include <QElapsedTimer>
#include <QPixmap>
#include <QWidget>
#include <algorithm>
#include <cstdio>
#include <vector>

inline double uiFrameMs(QWidget *w)
{
    QElapsedTimer t;
    t.start();
    QApplication::processEvents();
    QPixmap frame = w->grab();
    Q_UNUSED(frame);
    return t.nsecsElapsed() / 1e6;
}

inline double uiPercentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const size_t i = std::min(v.size() - 1, size_t(p * (v.size() - 1) + 0.5));
    return v[i];
}

// One row of the bench table: figure, ours, unit, baseline (0: none), goal ("<=" / ">=", value; empty: none).
inline void uiRow(const char *figure, double ours, const char *unit, double baseline, const char *op = "", double goal = 0)
{
    std::printf("UIROW|%s|%.3f|%s|%.3f|%s|%.3f\n", figure, ours, unit, baseline, op, goal);
    std::fflush(stdout);
}
