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

// Times `reload` then a frame, `rounds` times (median into `first`), then `steps` scroll steps of
// one frame each (into `stepTimes`).
template <typename Reload, typename Scroll>
void uiMeasure(
    QWidget *w, int rounds, int steps, Reload reload, Scroll scroll, double &first, std::vector<double> &stepTimes)
{
    std::vector<double> firsts;
    for (int r = 0; r < rounds; ++r) {
        QElapsedTimer t;
        t.start();
        reload();
        QApplication::processEvents();
        QPixmap frame = w->grab();
        Q_UNUSED(frame);
        firsts.push_back(t.nsecsElapsed() / 1e6);
    }
    first = uiPercentile(firsts, 0.5);
    for (int s = 0; s < steps; ++s) {
        scroll(s);
        stepTimes.push_back(uiFrameMs(w));
    }
}

// One row of the bench table: figure, ours, unit, baseline (0: none), goal ("<=" / ">=", value; empty: none).
inline void uiRow(
    const char *figure, double ours, const char *unit, double baseline, const char *op = "", double goal = 0)
{
    std::printf("UIROW|%s|%.3f|%s|%.3f|%s|%.3f\n", figure, ours, unit, baseline, op, goal);
    std::fflush(stdout);
}
