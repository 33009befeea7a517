#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QElapsedTimer>
#include <QString>

#include <cstdint>

/// Makes the line that shows on a terminal how far a download has come, how fast it is and how long
/// it will take.
class ProgressLine
{
public:
    /// The download begins: its speed is measured from now on.
    void begin() { sinceLast_.start(); }

    /// The line for a state of the download, at most width columns long. To be called several times
    /// a second, since the speed is measured from call to call.
    QString text(const UpdateDownloadProgress &progress, int width);

    /// A number of bytes for people, such as "12.3 MiB".
    static QString size(uint64_t bytes);

private:
    void measure(const UpdateDownloadProgress &progress);
    QString remaining(uint64_t bytes) const;

    QElapsedTimer sinceLast_;
    uint64_t lastReceived_ = 0;
    double rate_ = 0; // Bytes a second; 0 while unknown.
};
