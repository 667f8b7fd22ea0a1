#pragma once

#include "IMDispatch.h"
#include "IMError.h"
#include "TestUtil.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>

//! How an asynchronous operation ended: how often, with what, on which thread, and whether a
//! block ran before the starting call returned (`started` is set by `wait()`, or by the test).
template <typename T = QVariant> struct Outcome {
    int successes = 0;
    int failures = 0;
    int completions = 0;
    T value {};
    IMError error;
    bool offMain = false;
    bool synchronous = false;
    bool started = false;

    int total() const { return successes + failures; }
    void note()
    {
        offMain |= !IMIsMainThread();
        synchronous |= !started;
    }
    //! Ends that arrive after the outcome has gone (a test that gave up waiting) are dropped,
    //! so that a failing test fails with its reason instead of writing to a dead frame.
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);
    Outcome() = default;
    Outcome(const Outcome &) = delete;
    Outcome &operator=(const Outcome &) = delete;
    ~Outcome() { *alive = false; }

    std::function<void(const T &)> ok()
    {
        return [this, alive = alive](const T &v) {
            if (!*alive)
                return;
            note();
            ++successes;
            value = v;
        };
    }
    std::function<void(const IMError &)> fail()
    {
        return [this, alive = alive](const IMError &e) {
            if (!*alive)
                return;
            note();
            ++failures;
            error = e;
        };
    }
    //! A completion block of any signature `(error, ...)`: counted apart from the ends.
    auto done()
    {
        return [this, alive = alive](const IMError &, const auto &...) {
            if (*alive)
                ++completions;
        };
    }
    //! Marks the call as returned and waits for its end; then a few event-loop turns more, where a
    //! second end posted to the main queue would land.
    bool wait(int ms = 20000)
    {
        started = true;
        const bool ended = waitUntil([this] { return total() > 0; }, ms);
        spinFor(10);
        return ended;
    }
    //! Exactly one end, a success, on the main thread, not before the call returned.
    bool oneAsyncSuccess() const { return successes == 1 && failures == 0 && !offMain && !synchronous; }
    bool oneAsyncFailure() const { return successes == 0 && failures == 1 && !offMain && !synchronous; }
    //! One asynchronous failure on the main thread, with `code`.
    ::testing::AssertionResult failedOnceWith(int code) const
    {
        if (oneAsyncFailure() && error.code() == code)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
            << successes << " successes, " << failures << " failures, off main " << offMain << ", synchronous "
            << synchronous << ", error " << error.description().toStdString();
    }
};
