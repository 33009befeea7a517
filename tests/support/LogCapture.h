#pragma once

#include <QStringList>
#include <QtGlobal>

/// Catches what is logged in the category "zvupdate" for as long as it lives; other messages pass.
/// One at a time.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines logged up to now. Any thread.
    QStringList lines() const;

private:
    QtMessageHandler former_;
};
