#include "ApplyCommand.h"

#include "../../platform/files/FileDigest.h"
#include "../../platform/files/Files.h"
#include "../../platform/files/InstallerKind.h"
#include "../../platform/files/LockedFile.h"
#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "Archive.h"
#include "HostProcess.h"
#include "Launch.h"
#include "Replacement.h"
#include "SelfCopy.h"
#include "Target.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

struct Settings
{
    QString installer;
    QString target;
    HostProcess host;
    std::chrono::seconds patience;
    std::chrono::seconds probation;
    std::optional<QByteArray> md5;
    bool stripsTopFolder;
    QString program; // Within a folder; empty for a file.
    std::optional<QStringList> restart;
    QString folder; // The one that this was started in, by its name.
};

Result<Settings> settingsIn(const Arguments &arguments)
{
    const auto installer = arguments.absolutePath(u"installer"_s);
    if (!installer)
        return Failure{installer.error()};
    const auto target = arguments.absolutePath(u"replace"_s);
    if (!target)
        return Failure{target.error()};
    constexpr int lastProcess = 1 << 22;
    const auto host = arguments.number(u"wait-for"_s, 1, 1, lastProcess);
    if (!host)
        return Failure{host.error()};
    constexpr int anHour = 60 * 60;
    const auto patience = arguments.number(u"patience"_s, 60, 0, anHour);
    if (!patience)
        return Failure{patience.error()};
    const auto probation = arguments.number(u"probation"_s, 5, 0, anHour);
    if (!probation)
        return Failure{probation.error()};
    std::optional<QByteArray> md5;
    if (const auto text = arguments.value(u"expect-md5"_s)) {
        md5 = QByteArray::fromHex(text->toLatin1());
        if (QString::fromLatin1(md5->toHex()) != text->toLower() || md5->size() != 16)
            return Failure{
                u"--expect-md5: \"%1\" is no MD5 digest; give 32 hexadecimal digits"_s.arg(*text)};
    }
    const QString program = arguments.value(u"program"_s).value_or(QString());
    if (QDir::isAbsolutePath(program))
        return Failure{
            u"--program: \"%1\" is absolute; give its path within the folder"_s.arg(program)};
    std::optional<QStringList> restart;
    if (arguments.isSet(u"restart"_s))
        restart = arguments.values(u"restart"_s);
    const bool waits = arguments.isSet(u"wait-for"_s);
    return Settings{.installer = *installer,
                    .target = QDir::cleanPath(*target),
                    .host = HostProcess(waits ? std::optional<pid_t>(*host) : std::nullopt),
                    .patience = std::chrono::seconds(*patience),
                    .probation = std::chrono::seconds(*probation),
                    .md5 = md5,
                    .stripsTopFolder = arguments.isSet(u"strip-top-folder"_s),
                    .program = program,
                    .restart = restart,
                    .folder = QDir::currentPath()};
}

bool isArchive(InstallerKind kind)
{
    return kind == InstallerKind::Zip || kind == InstallerKind::Tar ||
           kind == InstallerKind::TarGzip || kind == InstallerKind::TarXz ||
           kind == InstallerKind::TarZstd;
}

bool isSingleFile(InstallerKind kind)
{
    return kind == InstallerKind::AppImage || kind == InstallerKind::Executable ||
           kind == InstallerKind::Script;
}

// What can be known of the installer before anything is written.
Result<void> checkInstaller(const LockedFile &installer, const Settings &settings,
                            const Target &target)
{
    const auto refused = [&settings](const QString &why) {
        return Failure{u"\"%1\" %2"_s.arg(settings.installer, why)};
    };
    if (installer.state() == LockedFile::State::InUse)
        return refused(u"is being written by another process"_s);
    if (installer.state() != LockedFile::State::Open)
        return refused(u"cannot be read: "_s + qt_error_string(installer.error()));
    QFile content;
    content.open(installer.descriptor(), QIODevice::ReadOnly);
    const InstallerKind kind = installerKind(content);
    if (target.isFolder ? !isArchive(kind) : !isSingleFile(kind))
        return refused(u"is nothing to replace %1 with: it is %2"_s.arg(
            target.isFolder ? u"a folder"_s : u"a file"_s, installerOpener(kind)));
    if (settings.md5 && md5OfOpenFile(installer.descriptor(), {}) != settings.md5)
        return refused(u"does not have the digest that is expected"_s);

    const quint64 room = Files::room(target.path);
    if (target.isFolder)
        return Archive(installer.descriptor(), settings.stripsTopFolder).survey(room);
    if (static_cast<quint64>(content.size()) >= room)
        return Failure{u"there is no room on the disk beside \"%1\""_s.arg(target.path)};
    return {};
}

// Whether what is restarted can be: of a file the permissions are kept.
Result<void> checkProgram(const Settings &settings, const Target &target,
                          const Replacement &replacement)
{
    const QFileInfo info(target.isFolder ? Files::join(replacement.staged(), settings.program)
                                         : replacement.staged());
    if (!settings.restart || (info.isFile() && info.isExecutable()))
        return {};
    if (target.isFolder)
        return Failure{u"the archive has no program \"%1\" to restart"_s.arg(settings.program)};
    return Failure{u"\"%1\" is not executable, and could not be restarted"_s.arg(target.path)};
}

Result<void> stage(const Settings &settings, const Target &target, Replacement &replacement)
{
    const LockedFile installer(settings.installer);
    if (auto checked = checkInstaller(installer, settings, target); !checked)
        return checked;
    auto staged =
        target.isFolder
            ? replacement.stageFolder(Archive(installer.descriptor(), settings.stripsTopFolder))
            : replacement.stageFile(installer.descriptor());
    return staged ? checkProgram(settings, target, replacement) : staged;
}

// The host has ended by now: if it is to be restarted, something is, whatever happens.
Outcome exchange(const Settings &settings, const Target &target, Replacement &replacement,
                 Console &console)
{
    const QString program =
        target.isFolder ? Files::join(target.given, settings.program) : target.given;
    const Launch launch{program, settings.restart.value_or(QStringList()), settings.folder};
    const auto startOld = [&](const QString &reason) -> Outcome {
        if (!settings.restart)
            return Failure{reason};
        const auto started = launch.start(std::chrono::seconds(0));
        return Failure{reason + (started ? u"; the old one is started"_s
                                         : u"; the old one "_s + started.error())};
    };
    if (const auto exchanged = replacement.exchange(); !exchanged)
        return startOld(exchanged.error());
    const QString done =
        u"\"%1\" is replaced, and the old one kept as \"%2\""_s.arg(target.path, target.previous());
    if (!settings.restart) {
        console.complain(u"zvupdate-apply: "_s + done);
        return Success;
    }
    if (const auto started = launch.start(settings.probation); !started) {
        const QString reason = u"the new \"%1\" "_s.arg(program) + started.error();
        const auto restored = replacement.restore();
        return restored ? startOld(reason + u"; the old one is back"_s)
                        : Failure{CommandFailure(reason + u"; "_s + restored.error())};
    }
    console.complain(u"zvupdate-apply: "_s + done + u"; the new one runs"_s);
    return Success;
}

Outcome apply(const Arguments &arguments, Console &console)
{
    const auto settings = settingsIn(arguments);
    if (!settings)
        return wrongArguments(settings.error());
    const auto target = Target::find(settings->target);
    if (!target)
        return Failure{target.error()};
    if (target->isFolder && settings->restart && settings->program.isEmpty())
        return wrongArguments(u"--program is missing; give --program with the path, within the "
                              "folder, of what --restart starts"_s);
    if (!target->isFolder && !settings->program.isEmpty())
        return wrongArguments(u"--program is for folders; leave it out to restart the file"_s);
    const QStringList running = settings->host.files();
    if (target->isNamedAppImage() && !running.isEmpty() &&
        std::none_of(running.cbegin(), running.cend(),
                     [&target](const QString &file) { return target->holds(file); }))
        return Failure{u"\"%1\" is what APPIMAGE names, and not what the process to wait for runs "
                       "from"_s.arg(target->path)};
    Replacement replacement(*target);
    if (const auto prepared = replacement.prepare(); !prepared)
        return Failure{prepared.error()};
    if (SelfCopy::isNeeded(*target))
        return SelfCopy::run(*target, Files::join(target->workFolder(), u"program"_s));
    if (const auto staged = stage(*settings, *target, replacement); !staged)
        return Failure{staged.error()};
    if (arguments.isSet(u"wait-for"_s)) {
        std::puts("ready"); // Past the console, as the host may have gone without reading this.
        std::fflush(stdout);
    }
    if (!settings->host.waitForEnd(settings->patience))
        return Failure{u"the process to wait for has not ended in time"_s};
    return exchange(*settings, *target, replacement, console);
}

} // namespace

Command applyCommand()
{
    return {
        .summary = u"Replaces an application by its new version, once the application has ended"_s,
        .details =
            {u"An AppImage, a program or a script replaces a file; a zip archive, or a tar archive "
             "with or without gzip, xz or zstd, replaces a folder. Name, permissions and links "
             "that lead there stay, and the old one is kept beside it as NAME.previous."_s,
             u"All that can be known is checked first. Then the new one is put on the disk beside "
             "the old one, the process is waited for, and the two are exchanged. If this ends at "
             "any moment, the whole old or the whole new one is in place. What a package manager, "
             "a Flatpak or a snap looks after is left alone."_s,
             u"With --wait-for, the line \"ready\" on standard output says that nothing has been "
             "refused and the process may end. What happened is one sentence on standard error."_s},
        .options =
            {{.name = u"installer"_s,
              .valueName = u"FILE"_s,
              .help = u"The new version. What it is, its content tells, and not its name."_s,
              .isRequired = true},
             {.name = u"replace"_s,
              .valueName = u"TARGET"_s,
              .help = u"The file or folder to replace."_s,
              .isRequired = true},
             {.name = u"wait-for"_s,
              .valueName = u"PID"_s,
              .help = u"The process to wait for, which is older than this one."_s},
             {.name = u"patience"_s,
              .valueName = u"SECONDS"_s,
              .help = u"How long to wait for it; default 60."_s},
             {.name = u"expect-md5"_s,
              .valueName = u"DIGEST"_s,
              .help = u"The digest that the new version must have."_s},
             {.name = u"strip-top-folder"_s,
              .help = u"Unpacks what lies in the archive's one top folder, without that."_s},
             {.name = u"program"_s,
              .valueName = u"PATH"_s,
              .help = u"What to restart, by its path within the folder."_s},
             {.name = u"probation"_s,
              .valueName = u"SECONDS"_s,
              .help =
                  u"How long the new one must live after the restart; default 5. Otherwise the "
                  "old one comes back and is started. 0 for one that starts another and ends."_s},
             {.name = u"restart"_s,
              .valueName = u"[ARGUMENT...]"_s,
              .help = u"Starts the new one in the environment and the folder that this was started "
                      "in. All that follows is for the new one."_s,
              .takesRest = true}},
        .exitStatuses = {u"0 replaced, and running if it was to be restarted, 1 refused or failed "
                         "with the old one in place, 2 wrong arguments."_s},
        .examples = {u"--installer new.AppImage --replace ~/Applications/Sample.AppImage "
                     "--wait-for 4711 --restart"_s,
                     u"--installer new.tar.xz --replace ~/sample --strip-top-folder "
                     "--program bin/sample --restart --updated"_s},
        .run = apply,
    };
}
