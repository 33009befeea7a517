#include "Preferences.h"

#include "Text.h"

#include <QSettings>
#include <QVariant>

namespace ZVPlatform {

namespace {

std::optional<QVariant> stored(const QString &key)
{
    const QVariant value = QSettings().value(key);
    if (!value.isValid() || value.isNull())
        return std::nullopt;
    return value;
}

} // namespace

std::optional<bool> Preferences::boolean(const QString &key)
{
    const auto value = stored(key);
    if (!value)
        return std::nullopt;
    // A settings file holds text; other backends hold what was stored.
    if (value->typeId() == QMetaType::QString)
        return truthValue(value->toString());
    return value->toBool();
}

void Preferences::setBoolean(const QString &key, bool value)
{
    QSettings().setValue(key, value);
}

std::optional<QDateTime> Preferences::date(const QString &key)
{
    const auto value = stored(key);
    const QDateTime date = value ? value->toDateTime() : QDateTime();
    if (!date.isValid())
        return std::nullopt;
    return date;
}

void Preferences::setDate(const QString &key, const QDateTime &value)
{
    QSettings().setValue(key, value);
}

std::optional<QString> Preferences::text(const QString &key)
{
    const auto value = stored(key);
    if (!value || !value->canConvert<QString>())
        return std::nullopt;
    return value->toString();
}

void Preferences::setText(const QString &key, const QString &value)
{
    QSettings().setValue(key, value);
}

void Preferences::remove(const QString &key)
{
    QSettings().remove(key);
}

bool Preferences::synchronise()
{
    QSettings settings;
    settings.sync();
    return settings.status() == QSettings::NoError;
}

} // namespace ZVPlatform
