#pragma once

#include <gtest/gtest.h>

#include <iosfwd>

/// How downloads run; see kZVAppKitVersionNumber.
enum class DownloadMode { Session, Connection };

/// Names a mode, also in the names of tests.
void PrintTo(DownloadMode mode, std::ostream *stream);

/// Chooses a mode for as long as it lives.
class DownloadModeSwitch
{
public:
    explicit DownloadModeSwitch(DownloadMode mode);
    ~DownloadModeSwitch();

    DownloadModeSwitch(const DownloadModeSwitch &) = delete;
    DownloadModeSwitch &operator=(const DownloadModeSwitch &) = delete;

private:
    const double former_;
};

/// For tests that run in both modes.
class InBothModes : public testing::WithParamInterface<DownloadMode>
{
    const DownloadModeSwitch mode_{GetParam()};
};
inline const auto bothModes = testing::Values(DownloadMode::Session, DownloadMode::Connection);

/// How many threads of the library are running, by their names.
int libraryThreads();
