#include "Preferences.h"

#include "Text.h"

#include <QSettings>
#include <QVariant>

#include <mutex>

namespace ZVPlatform {

namespace {

std::mutex settingsMutex;

/// The settings while one thread uses them. Qt would share them, and the texts in them, between
/// threads by means that thread sanitizer does not see.
class LockedSettings
{
public:
    QSettings *operator->() { return &settings_; }

    std::optional<QVariant> stored(const QString &key)
    {
        const QVariant value = settings_.value(key);
        if (!value.isValid() || value.isNull())
            return std::nullopt;
        return value;
    }

private:
    const std::lock_guard<std::mutex> lock_{settingsMutex};
    QSettings settings_;
};

QString unshared(const QString &text)
{
    return QString(text.constData(), text.size());
}

} // namespace

std::optional<bool> Preferences::boolean(const QString &key)
{
    LockedSettings settings;
    const auto value = settings.stored(key);
    if (!value)
        return std::nullopt;
    // A settings file holds text; other backends hold what was stored.
    if (value->typeId() == QMetaType::QString)
        return truthValue(value->toString());
    return value->toBool();
}

void Preferences::setBoolean(const QString &key, bool value)
{
    LockedSettings()->setValue(key, value);
}

std::optional<QDateTime> Preferences::date(const QString &key)
{
    LockedSettings settings;
    const auto value = settings.stored(key);
    const QDateTime date = value ? value->toDateTime() : QDateTime();
    if (!date.isValid())
        return std::nullopt;
    return date;
}

void Preferences::setDate(const QString &key, const QDateTime &value)
{
    LockedSettings()->setValue(key, value);
}

std::optional<QString> Preferences::text(const QString &key)
{
    LockedSettings settings;
    const auto value = settings.stored(key);
    if (!value || !value->canConvert<QString>())
        return std::nullopt;
    return unshared(value->toString());
}

void Preferences::setText(const QString &key, const QString &value)
{
    LockedSettings()->setValue(key, unshared(value));
}

void Preferences::remove(const QString &key)
{
    LockedSettings()->remove(key);
}

bool Preferences::synchronise()
{
    LockedSettings settings;
    settings->sync();
    return settings->status() == QSettings::NoError;
}

} // namespace ZVPlatform
