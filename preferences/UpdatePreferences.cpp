#include "UpdatePreferences.h"

#include "../platform/settings/Preferences.h"

using ZVPlatform::Preferences;

const char *kZVAutoUpdateOnOffKey = "ZVUpdateAutoUpdate";

namespace {

constexpr QLatin1String nextCheckDateKey("CorvantaAutoUpdateNextCheckDate");
constexpr QLatin1String lastDownloadDigestKey("ZVLAST_DOWNLOAD_MD5");

QString automaticUpdatingKey()
{
    return QString::fromUtf8(kZVAutoUpdateOnOffKey);
}

} // namespace

std::optional<bool> UpdatePreferences::automaticUpdating()
{
    return Preferences::boolean(automaticUpdatingKey());
}

void UpdatePreferences::setAutomaticUpdating(std::optional<bool> on)
{
    if (on)
        Preferences::setBoolean(automaticUpdatingKey(), *on);
    else
        Preferences::remove(automaticUpdatingKey());
}

std::optional<QDateTime> UpdatePreferences::nextCheckDate()
{
    return Preferences::date(nextCheckDateKey);
}

void UpdatePreferences::setNextCheckDate(const std::optional<QDateTime> &date)
{
    if (date)
        Preferences::setDate(nextCheckDateKey, *date);
    else
        Preferences::remove(nextCheckDateKey);
}

std::optional<QString> UpdatePreferences::lastDownloadDigest()
{
    return Preferences::text(lastDownloadDigestKey);
}

void UpdatePreferences::setLastDownloadDigest(const std::optional<QString> &digest)
{
    if (digest)
        Preferences::setText(lastDownloadDigestKey, *digest);
    else
        Preferences::remove(lastDownloadDigestKey);
}

bool UpdatePreferences::synchronise()
{
    return Preferences::synchronise();
}

QString UpdatePreferences::path()
{
    return Preferences::path();
}
