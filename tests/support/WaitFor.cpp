#include "WaitFor.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

bool waitFor(const std::function<bool()> &condition, Meanwhile meanwhile)
{
    // Where one row of a table has failed, the further ones do not each take as long.
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
