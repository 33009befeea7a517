#include "Preferences.h"

#include "../Mutex.h"
#include "SystemLog.h"
#include "Text.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLockFile>
#include <QSettings>
#include <QVariant>

#include <chrono>
#include <utility>

#include <sys/stat.h>

namespace ZVPlatform {

namespace {

// To write the settings takes milliseconds. A lock that is older and that nobody holds was left by
// a process that has been killed, perhaps before it had written into the lock whose it is.
constexpr std::chrono::milliseconds staleLockAge(1000);
constexpr std::chrono::milliseconds longestSettingsWait(1500);

Mutex settingsMutex;

QString organisation()
{
#ifdef __APPLE__
    const QString name = QCoreApplication::organizationDomain();
#else
    const QString name = QCoreApplication::organizationName();
#endif
    return name.isEmpty() ? QStringLiteral("Unknown Organization") : name;
}

/// The two files of the user's that Qt opens as the settings: the application's, and below it the
/// organisation's.
struct SettingsFiles
{
    QString application;
    QString organisation;
};

// Nothing without a home: Qt would have the root directory, or the current one, stand in for it.
// Nor where XDG_CONFIG_HOME depends on where the process was started.
std::optional<SettingsFiles> settingsFiles() ZVUPDATE_REQUIRES(settingsMutex)
{
    // Qt tells where settings are only when it has opened them, so others are asked for.
    const QString others = QStringLiteral("zvupdate-nothing");
    const QFileInfo example(
        QSettings(QSettings::defaultFormat(), QSettings::UserScope, others).fileName());
    const QString ending = example.fileName().mid(others.size());
    const QDir directory = example.absoluteDir();
    const bool isHomeMissing = !qgetenv("HOME").startsWith('/');
    if (example.isRelative() ||
        (isHomeMissing && directory == QDir(QDir::homePath() + QLatin1String("/.config"))))
        return std::nullopt;
    const QString base = directory.filePath(organisation());
    const QString application = QCoreApplication::applicationName();
    const QString own = application.isEmpty() ? base : base + u'/' + application;
    return SettingsFiles{own + ending, base + ending};
}

// Whether opening what has this name can neither wait for another process nor go on for ever.
bool isFileOrNothing(const QString &path)
{
    struct stat status = {};
    return stat(QFile::encodeName(path).constData(), &status) != 0 || S_ISREG(status.st_mode);
}

// The same of a lock, where Qt also trips over a link that leads nowhere.
bool isLockOrNothing(const QString &path)
{
    struct stat status = {};
    return lstat(QFile::encodeName(path).constData(), &status) != 0 || S_ISREG(status.st_mode);
}

// Whether Qt, which waits for the lock without end, will get it at once. A lock that was left is
// removed, and for one that is held is waited, but no second time before it was let go of.
bool isLockFree(const QString &path) ZVUPDATE_REQUIRES(settingsMutex)
{
    static bool isWaitedFor = true;
    if (!isLockOrNothing(path) || !isLockOrNothing(path + QLatin1String(".rmlock")))
        return false;
    QLockFile lock(path);
    lock.setStaleLockTime(static_cast<int>(staleLockAge.count()));
    // Where there can be no lock at all, Qt does not wait for it.
    const bool isFree =
        lock.tryLock(isWaitedFor ? static_cast<int>(longestSettingsWait.count()) : 0) ||
        lock.error() != QLockFile::LockFailedError;
    isWaitedFor = isFree;
    return isFree;
}

QString unshared(const QString &text)
{
    return QString(text.constData(), text.size());
}

/// The settings while one thread uses them. Qt would share them, and the texts in them, between
/// threads by means that thread sanitizer does not see.
class ZVUPDATE_THREAD_SAFETY(scoped_lockable) LockedSettings
{
public:
    LockedSettings() ZVUPDATE_THREAD_SAFETY(acquire_capability(settingsMutex))
    {
        if (files_ && isFileOrNothing(files_->application) && isFileOrNothing(files_->organisation))
            settings_.emplace(QSettings::defaultFormat(), QSettings::UserScope, organisation(),
                              QCoreApplication::applicationName());
    }

    ~LockedSettings() ZVUPDATE_THREAD_SAFETY(release_capability()) = default;

    std::optional<QVariant> stored(const QString &key) const
    {
        const QVariant value = settings_ ? settings_->value(key) : QVariant();
        if (!value.isValid() || value.isNull())
            return std::nullopt;
        return value;
    }

    /// Stores a value, or, when it is invalid, removes what is stored. Returns what kept it from
    /// being written.
    std::optional<QString> store(const QString &key, const QVariant &given)
        ZVUPDATE_REQUIRES(settingsMutex)
    {
        // What is stored lives on in the settings, and is let go of under the lock alone.
        const QVariant value =
            given.typeId() == QMetaType::QString ? QVariant(unshared(given.toString())) : given;
        if (!canBeWritten())
            return obstacle(key);
        if (value.isValid())
            settings_->setValue(key, value);
        else
            settings_->remove(key);
        settings_->sync();
        return settings_->status() == QSettings::AccessError ? std::optional(obstacle(key))
                                                             : std::nullopt;
    }

    bool synchronise() ZVUPDATE_REQUIRES(settingsMutex)
    {
        if (!canBeWritten())
            return false;
        settings_->sync();
        return settings_->status() == QSettings::NoError;
    }

private:
    // What Qt is given when it cannot be written is tried again with each later use, and waited
    // for.
    bool canBeWritten() const ZVUPDATE_REQUIRES(settingsMutex)
    {
        return settings_ && isLockFree(settings_->fileName() + QLatin1String(".lock"));
    }

    QString obstacle(const QString &key) const
    {
        return QStringLiteral("preference %1 not written: %2")
            .arg(key, files_ ? files_->application + QLatin1String(" or its lock is not accessible")
                             : QStringLiteral("HOME names no directory"));
    }

    const MutexLock<Mutex> lock_{settingsMutex};
    const std::optional<SettingsFiles> files_ = settingsFiles();
    std::optional<QSettings> settings_;
};

void write(const QString &key, const QVariant &value)
{
    std::optional<QString> obstacle;
    {
        LockedSettings settings;
        obstacle = settings.store(key, value);
    }
    // What receives the log may read preferences itself, which are no longer locked.
    if (obstacle)
        systemLog(*obstacle);
}

} // namespace

std::optional<bool> Preferences::boolean(const QString &key)
{
    const LockedSettings settings;
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
    write(key, value);
}

std::optional<QDateTime> Preferences::date(const QString &key)
{
    const LockedSettings settings;
    const auto value = settings.stored(key);
    const QDateTime date = value ? value->toDateTime() : QDateTime();
    if (!date.isValid())
        return std::nullopt;
    return date;
}

void Preferences::setDate(const QString &key, const QDateTime &value)
{
    write(key, value);
}

std::optional<QString> Preferences::text(const QString &key)
{
    const LockedSettings settings;
    const auto value = settings.stored(key);
    if (!value || !value->canConvert<QString>())
        return std::nullopt;
    return unshared(value->toString());
}

void Preferences::setText(const QString &key, const QString &value)
{
    write(key, value);
}

void Preferences::remove(const QString &key)
{
    write(key, {});
}

bool Preferences::synchronise()
{
    LockedSettings settings;
    return settings.synchronise();
}

QString Preferences::path()
{
    const MutexLock lock(settingsMutex);
    const auto files = settingsFiles();
    return files ? files->application : QString();
}

} // namespace ZVPlatform
