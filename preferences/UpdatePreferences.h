#pragma once

#include "../platform/Export.h"

#include <QDateTime>
#include <QString>

#include <optional>

extern "C" {

/// The preferences key of the switch for automatic updating: "ZVUpdateAutoUpdate". A host binds its
/// own setting to it, or points the variable to another constant string, from the thread that runs
/// its checks; every use reads the variable anew.
ZVUPDATE_EXPORT extern const char *kZVAutoUpdateOnOffKey;
}

/// What the system keeps in the user's preferences between runs. Reading answers nothing where
/// nothing is stored; setting nothing removes what is. From one thread at a time.
class ZVUPDATE_EXPORT UpdatePreferences
{
public:
    ///@{
    /// Whether the user wants automatic updating. Stored under kZVAutoUpdateOnOffKey.
    static std::optional<bool> automaticUpdating();
    static void setAutomaticUpdating(std::optional<bool> on);
    ///@}

    ///@{
    /// No check is made before this date when the switch has never been stored. Stored under
    /// "CorvantaAutoUpdateNextCheckDate".
    static std::optional<QDateTime> nextCheckDate();
    static void setNextCheckDate(const std::optional<QDateTime> &date);
    ///@}

    ///@{
    /// The digest, in lower case, of the installer whose download was started last. Stored under
    /// "ZVLAST_DOWNLOAD_MD5".
    static std::optional<QString> lastDownloadDigest();
    static void setLastDownloadDigest(const std::optional<QString> &digest);
    ///@}

    /// Exchanges what has been set with the host's other processes. False when the preferences
    /// cannot be read or written.
    static bool synchronise();

    /// The file that they are kept in; empty where there is no home directory to keep it in.
    static QString path();
};
