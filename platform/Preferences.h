#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace ZVPlatform {

/// The user's standard preferences: the settings of the host application, shared with its other
/// processes. Reading answers nothing for a key that is absent or holds something else. Writing
/// waits for other processes for two seconds at most; what cannot be written is lost, which the log
/// says. Without a home directory nothing is written. Any thread.
class Preferences
{
public:
    static std::optional<bool> boolean(const QString &key);
    static void setBoolean(const QString &key, bool value);

    static std::optional<QDateTime> date(const QString &key);
    static void setDate(const QString &key, const QDateTime &value);

    static std::optional<QString> text(const QString &key);
    static void setText(const QString &key, const QString &value);

    static void remove(const QString &key);

    /// Reads what other processes have written. False when the preferences cannot be read, or the
    /// last change could not be written.
    static bool synchronise();
};

} // namespace ZVPlatform
