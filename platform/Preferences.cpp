#include "Preferences.h"

#include "SystemLog.h"
#include "Text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QSettings>
#include <QVariant>

#include <chrono>
#include <mutex>

#include <sys/stat.h>

namespace ZVPlatform {

namespace {

// A process that writes settings has its lock for some milliseconds.
constexpr std::chrono::milliseconds longestWait(1500);
constexpr std::chrono::milliseconds longestLock(1000);

std::mutex settingsMutex;
bool lastWriteFailed = false; // Guarded by settingsMutex.

/// The settings while one thread uses them. Qt would share them, and the texts in them, between
/// threads by means that thread sanitizer does not see.
class LockedSettings
{
public:
    std::optional<QVariant> stored(const QString &key)
    {
        const QVariant value = settings_.value(key);
        if (!value.isValid() || value.isNull())
            return std::nullopt;
        return value;
    }

    /// Makes a change and writes it. What cannot be written is told in the log, the first time.
    template <class Change>
    void write(Change &&change)
    {
        const bool isFree = hasHome() && isLockFree();
        if (isFree) {
            change(settings_);
            settings_.sync();
        }
        const bool failed = !isFree || settings_.status() != QSettings::NoError;
        if (failed && !lastWriteFailed)
            systemLog(QStringLiteral("The preferences cannot be written: ") + settings_.fileName());
        lastWriteFailed = failed;
    }

    /// Reads what others have written. False when that, or the last change, has failed.
    bool synchronise()
    {
        settings_.sync();
        return settings_.status() == QSettings::NoError && !lastWriteFailed;
    }

private:
    // Without a home of its own a process has that of the whole system, to Qt, or one that depends
    // on where it was started.
    bool hasHome() const
    {
        const QString config = QDir(QDir::homePath()).absoluteFilePath(QStringLiteral(".config/"));
        const QString file = QFileInfo(settings_.fileName()).absoluteFilePath();
        return QDir::isAbsolutePath(qEnvironmentVariable("HOME")) ||
               !QDir::cleanPath(file).startsWith(QDir::cleanPath(config));
    }

    // Qt waits for the lock for as long as it takes, and then for half a minute if a killed process
    // has left it half made. Once it was in the way, it is not waited for again until it is free.
    bool isLockFree() const
    {
        const QString path = settings_.fileName() + QLatin1String(".lock");
        struct stat status = {};
        if (lstat(QFile::encodeName(path).constData(), &status) != 0)
            return true;
        if (!S_ISREG(status.st_mode))
            return false;
        QLockFile lock(path);
        lock.setStaleLockTime(static_cast<int>(longestLock.count()));
        return lock.tryLock(lastWriteFailed ? 0 : static_cast<int>(longestWait.count()));
    }

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
    LockedSettings().write([&](QSettings &settings) { settings.setValue(key, value); });
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
    LockedSettings().write([&](QSettings &settings) { settings.setValue(key, value); });
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
    LockedSettings().write([&](QSettings &settings) { settings.setValue(key, unshared(value)); });
}

void Preferences::remove(const QString &key)
{
    LockedSettings().write([&](QSettings &settings) { settings.remove(key); });
}

bool Preferences::synchronise()
{
    return LockedSettings().synchronise();
}

} // namespace ZVPlatform
