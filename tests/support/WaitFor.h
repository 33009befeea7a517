#pragma once

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

/// What a thread does while it waits.
enum class Meanwhile { RunEventLoop, Sleep };

/// Waits until a condition holds. False when it still does not after half a minute, which is for
/// faults only: no test depends on how long anything takes. A test that has failed already waits
/// for a second, so that the further rows of a table do not each take as long.
inline bool waitFor(const std::function<bool()> &condition,
                    Meanwhile meanwhile = Meanwhile::RunEventLoop)
{
    const std::chrono::seconds patience(testing::Test::HasFailure() ? 1 : 30);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        if (meanwhile == Meanwhile::RunEventLoop)
            QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
