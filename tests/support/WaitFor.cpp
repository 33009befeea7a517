#include "WaitFor.h"

#include <QCoreApplication>

#include <chrono>
#include <thread>

bool waitFor(const std::function<bool()> &condition, Meanwhile meanwhile)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        if (meanwhile == Meanwhile::RunEventLoop)
            QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
