#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace ZVPlatform {

/// The user's standard preferences: the settings of the host application, shared with its other
/// processes. Reading answers nothing for a key that is absent, holds something else or cannot be
/// read; what cannot be written is dropped, with a line in the system log. Neither takes more than
/// two seconds, whatever lies in the way. Without a home directory there are none. Any thread.
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

    /// Writes what has been set and reads what other processes have written. False when the
    /// preferences cannot be read or written.
    static bool synchronise();

    /// The file that they are kept in; empty without a home directory.
    static QString path();
};

} // namespace ZVPlatform
