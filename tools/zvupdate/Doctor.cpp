#include "Doctor.h"

#include "../commands/ProgressLine.h"
#include "Advice.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QUrl>

#include <limits>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

QString size(qint64 bytes)
{
    return ProgressLine::size(static_cast<uint64_t>(bytes));
}

// The directory itself, or the nearest one above it that is there, in which it would be created.
QFileInfo existingPart(const QString &directory)
{
    QFileInfo part(directory);
    while (!part.exists() && !part.isSymbolicLink() && !part.isRoot())
        part.setFile(part.path());
    return part;
}

bool isUsable(const QFileInfo &directory)
{
    return directory.isDir() && directory.isWritable() && directory.isExecutable();
}

} // namespace

Doctor::Doctor(const HostOptions &host, const QString &program, const Report &report)
    : productID_(host.productID),
      productVersion_(host.productVersion),
      directory_(host.directory),
      program_(program),
      releaseKeys_(host.releaseKeys),
      report_(report)
{
}

bool Doctor::examine()
{
    examineClock();
    examineInstallation();
    examinePreferences();
    examineSwitch();
    examineDirectory();
    // Each of these needs the one before.
    const bool isAddressed = examineAddress();
    if (isAddressed)
        examineProxy();
    if (isAddressed && examineReply() && examineToken())
        examineSize();
    examineFiles();
    examineRoom();
    return isAllWell_;
}

void Doctor::pass(const QString &name, const QString &message)
{
    report_({name, message});
}

bool Doctor::fail(const QString &name, const QString &message, const QString &remedy)
{
    report_({name, message, remedy});
    isAllWell_ = false;
    return false;
}

// HTTPS fails with a clock that is far off, and the date of the next check means nothing.
void Doctor::examineClock()
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDate built = QDate::fromString(QStringLiteral(ZVUPDATE_BUILD_DATE), Qt::ISODate);
    const QString shown = now.toString(Qt::ISODate);
    if (now.date() < built.addDays(-1)) // The builder's clock may be ahead by a little.
        fail(u"clock"_s,
             u"The clock shows %1, which is before this program was built."_s.arg(shown),
             u"Set it."_s);
    else
        pass(u"clock"_s, u"The clock shows %1."_s.arg(shown));
}

// What a store or a package manager has installed is for that to update.
void Doctor::examineInstallation()
{
    const HostInstallation installation = hostInstallation(program_);
    const QString name = program_.isEmpty() ? u"This program"_s : program_;
    const QString message = name + u' ' + installationKeeper(installation) + u'.';
    if (program_.isEmpty() || updatesItself(installation))
        pass(u"installation"_s, message);
    else
        fail(u"installation"_s, message, u"Leave updates to that."_s);
}

void Doctor::examinePreferences()
{
    const QString path = UpdatePreferences::path();
    const QFileInfo file(path);
    if (path.isEmpty())
        fail(u"preferences"_s, u"HOME names no directory to keep them in."_s, u"Set it."_s);
    else if (!UpdatePreferences::synchronise())
        fail(u"preferences"_s, u"%1 cannot be read."_s.arg(path),
             u"Make it readable, or remove it if it is damaged, and %1.lock with it."_s.arg(path));
    else if (!isUsable(existingPart(file.path())) || (file.exists() && !file.isWritable()))
        fail(u"preferences"_s, u"%1 cannot be written."_s.arg(path),
             u"Make it and its folder writable."_s);
    else
        pass(u"preferences"_s, u"%1 can be read and written."_s.arg(path));
}

void Doctor::examineSwitch()
{
    const auto automatic = UpdatePreferences::automaticUpdating();
    const auto nextCheck = UpdatePreferences::nextCheckDate();
    if (automatic == false)
        fail(u"automatic-updating"_s,
             u"Automatic updating is switched off, so that every check is skipped."_s,
             u"If that is not meant, give \"zvupdate preferences --automatic-updating on\", with "
             "the same --application."_s);
    else if (!automatic && nextCheck && *nextCheck > QDateTime::currentDateTimeUtc())
        fail(u"automatic-updating"_s,
             u"The next check is not made before %1."_s.arg(
                 nextCheck->toUTC().toString(Qt::ISODate)),
             u"If that is not meant, give \"zvupdate preferences --next-check unset\", with the "
             "same --application."_s);
    else
        pass(u"automatic-updating"_s,
             automatic
                 ? u"Automatic updating is switched on."_s
                 : u"Automatic updating has never been set; the first check switches it on."_s);
}

void Doctor::examineDirectory()
{
    const QFileInfo part = existingPart(directory_);
    if (!part.isDir())
        fail(u"directory"_s, u"%1 is not a directory."_s.arg(part.filePath()),
             u"Remove what is there, or choose another --directory."_s);
    else if (!isUsable(part))
        fail(u"directory"_s, u"%1 cannot be written to."_s.arg(part.filePath()),
             u"Make it writable, or choose another --directory."_s);
    else
        pass(u"directory"_s, part.filePath() == directory_
                                 ? u"%1 can be written to."_s.arg(directory_)
                                 : u"%1 can be created by a check."_s.arg(directory_));
}

bool Doctor::examineAddress()
{
    const QUrl url(client_.mBaseURL(), QUrl::StrictMode);
    const QString address = url.isValid() ? url.toString(QUrl::RemoveUserInfo) : client_.mBaseURL();
    const QString file = UpdateLogicFunc::overrideFilePath();
    const bool isOverridden = UpdateLogicFunc::overridingBaseURL() == client_.mBaseURL();
    const QString place = isOverridden ? u"write it anew in %1, or remove that"_s.arg(file)
                                       : u"build the library with ZVUPDATE_SERVICE_URL set to it"_s;

    const bool isHttp = url.scheme() == u"http"_s || url.scheme() == u"https"_s;
    if (!url.isValid() || !isHttp || url.host().isEmpty() || !address.endsWith(u"dt="_s))
        return fail(u"address"_s,
                    u"The service's address, \"%1\", is not an http or https URL that ends in "
                    "\"dt=\", without a line end."_s.arg(address),
                    u"Get the right one, and "_s + place + u'.');
    if (url.host().endsWith(u".invalid"_s))
        return fail(u"address"_s,
                    u"The service's address, %1, is that of no service."_s.arg(address),
                    u"Get the maker's, and "_s + place + u'.');

    QString message = u"The service's address is %1"_s.arg(address);
    if (isOverridden)
        message += u", from %1"_s.arg(file);
    if (url.scheme() == u"http"_s)
        message += u"; without HTTPS, whoever can change the traffic can offer any file"_s;
    pass(u"address"_s, message + u'.');
    return true;
}

// Whether it works shows the service's answer.
void Doctor::examineProxy()
{
    const auto proxy = proxyFor(client_.mBaseURL());
    if (!proxy)
        pass(u"proxy"_s, u"The service is asked without a proxy."_s);
    else if (proxy->address.isEmpty())
        fail(u"proxy"_s, u"What %1 holds is not the address of a proxy."_s.arg(proxy->variable),
             u"Set it to one such as http://proxy.example.com:3128, or unset it."_s);
    else
        pass(u"proxy"_s,
             u"%1 names the proxy %2 for the service."_s.arg(proxy->variable, proxy->address));
}

bool Doctor::examineReply()
{
    const auto reply = client_.doCheckUpdate(productID_, productVersion_);
    if (const auto failure = client_.lastFailure())
        return fail(u"service"_s, sentenceFor(*failure), remedyFor(*failure));
    const QString message = reply->msg().value_or(QString());
    // In these words zvupdate-service and the sites of zvupdate-publish say it.
    if (!reply->ok() && message.startsWith(u"unknown product"_s))
        return fail(
            u"service"_s,
            u"The service does not know version %1 of %2; it says: %3"_s.arg(productVersion_,
                                                                             productID_, message),
            u"Check --product-id and --product-version; the catalogue of a static site must "
            "name every version that is in use."_s);
    if (!reply->ok()) {
        pass(u"service"_s, u"The service has no update for version %1 of %2; it says: %3"_s.arg(
                               productVersion_, productID_, message));
        return true;
    }

    const auto version = reply->ZVUpdateVersion();
    if (!version || !reply->ZVMD5())
        return fail(u"service"_s, u"The service says that there is an update, but not which."_s,
                    u"Have it seal the reply's data with the protocol's key, with a version and a "
                    "digest in them."_s);
    files_ = UpdateFiles::named(directory_, productID_, *version);
    digest_ = reply->ZVMD5()->toLower();
    static const QRegularExpression digestForm(u"\\A[0-9a-f]{32}\\z"_s);
    if (!files_)
        return fail(
            u"service"_s,
            u"The service offers \"%1\", which cannot be part of a file name."_s.arg(*version),
            u"Have it offer a version of digits."_s);
    if (!digestForm.match(digest_).hasMatch())
        return fail(u"service"_s,
                    u"The service announces \"%1\", which is no MD5 digest."_s.arg(digest_),
                    u"Have it announce 32 hexadecimal digits."_s);
    pass(u"service"_s, u"The service offers version %1."_s.arg(*version));
    reply_ = reply;
    examineSignature();
    return true;
}

void Doctor::examineSignature()
{
    const auto keys = ReleaseKeys::read(releaseKeys_);
    if (!keys)
        return; // None were given.
    const auto release = reply_->signedRelease(*keys, productID_, productVersion_);
    if (!release) {
        files_.reset(); // A check would not look at them.
        fail(u"signature"_s, sentenceFor(release.error()), remedyFor(release.error()));
        return;
    }
    reply_->setRelease(*release);
    const auto signer = keys->signer(reply_->statement(), reply_->signatures());
    pass(u"signature"_s,
         u"The offer is signed under the key %1, %2."_s.arg(
             signer->name(), release->expires
                                 ? u"good until "_s + release->expires->toString(Qt::ISODate)
                                 : u"without an end"_s));
}

bool Doctor::examineToken()
{
    const auto reply = client_.doGetToken();
    const auto failure = client_.lastFailure();
    token_ = reply->ID().value_or(QString());
    if (!reply->ok() || token_.isEmpty())
        return failure && failure->kind != UpdateOutcome::Kind::NoToken
                   ? fail(u"token"_s,
                          u"The service hands out no download token. "_s + sentenceFor(*failure),
                          remedyFor(*failure))
                   : fail(u"token"_s,
                          u"The service hands out no download token. "_s +
                              reply->msg().value_or(QString()),
                          u"Look into the service's log."_s);
    pass(u"token"_s, u"The service hands out download tokens."_s);
    return true;
}

void Doctor::examineSize()
{
    if (!files_)
        return;
    const uint64_t size = client_.doGetFileSize(token_, files_->serviceFileName);
    const auto failure = client_.lastFailure();
    if (failure || size == 0) {
        fail(u"size"_s,
             u"The service tells no size of %1. "_s.arg(files_->serviceFileName) +
                 (failure ? sentenceFor(*failure) : QString()),
             u"Have it answer HEAD with the installer's Content-Length; look into its log."_s);
    } else if (size == std::numeric_limits<uint64_t>::max()) {
        pass(u"size"_s, u"The service announces no size of %1; progress cannot be shown."_s.arg(
                            files_->serviceFileName));
    } else if (reply_->release() && reply_->release()->size != size) {
        fail(u"size"_s, UpdateOutcome(UpdateOutcome::Kind::WrongSize).message,
             remedyFor(UpdateOutcome(UpdateOutcome::Kind::WrongSize)));
    } else {
        size_ = size;
        pass(u"size"_s, u"%1 has %2."_s.arg(files_->serviceFileName, ProgressLine::size(size)));
    }
}

void Doctor::examineFiles()
{
    const QString last = UpdatePreferences::lastDownloadDigest().value_or(u"unset"_s);
    pass(u"last-download"_s, u"The digest of the last download is %1%2."_s.arg(
                                 last, last == digest_ ? u", which is offered"_s : QString()));
    if (!files_)
        listFiles();
    else if (examineInstaller())
        examineTemporaryFile();
}

// Without an offer nothing can be said about the files but that they are there.
void Doctor::listFiles()
{
    QStringList names;
    const auto files = QDir(directory_).entryInfoList({u"*.bin"_s, u"*.dmg"_s}, QDir::Files);
    for (const QFileInfo &file : files) {
        if (file.fileName().startsWith(productID_ + u'_'))
            names.append(u"%1 (%2)"_s.arg(file.fileName(), size(file.size())));
    }
    pass(u"files"_s, names.isEmpty() ? u"There are no update files."_s
                                     : u"Update files: %1."_s.arg(names.join(u", "_s)));
}

// Whether the temporary file is still of interest.
bool Doctor::examineInstaller()
{
    const QFileInfo file(files_->diskImagePath);
    if (!file.exists() && !file.isSymbolicLink())
        return true;
    if (!file.isFile())
        return fail(u"files"_s,
                    u"%1 is in the installer's place, and no file."_s.arg(file.filePath()),
                    u"Remove it."_s);
    isInstallerHere_ = reply_->announces(file.filePath()).value_or(false);
    if (isInstallerHere_)
        pass(u"files"_s, u"The installer is there and verified: %1"_s.arg(file.filePath()));
    else
        pass(u"files"_s,
             u"%1 is not what is offered; the next check removes it."_s.arg(file.filePath()));
    return false;
}

void Doctor::examineTemporaryFile()
{
    const QFileInfo file(files_->temporaryPath);
    const QString path = file.filePath();
    if (!file.exists() && !file.isSymbolicLink())
        return pass(u"files"_s, u"Nothing has been downloaded yet."_s);
    if (!file.isFile()) {
        fail(u"files"_s, u"%1 is in the download's place, and no file."_s.arg(path),
             u"Remove it."_s);
        return;
    }
    const QString state = u"%1 has %2"_s.arg(path, size(file.size()));
    if (UpdatePreferences::lastDownloadDigest() != digest_)
        return pass(u"files"_s, state + u" of another installer; the next check removes it."_s);
    if (!size_ || static_cast<uint64_t>(file.size()) < *size_)
        return pass(u"files"_s, state + u"; the next check resumes it."_s);
    if (reply_->announces(path).value_or(false))
        return pass(u"files"_s, state + u" and is complete; the next check takes it."_s);
    // The library leaves such a file to the service, which has no more bytes for it.
    if (reply_->release())
        return pass(u"files"_s, state + u" that are not the maker's; the next check removes it."_s);
    fail(u"files"_s, state + u", all there is to come, and is not what is offered."_s,
         u"Remove it, so that the next check downloads it anew."_s);
}

void Doctor::examineRoom()
{
    const QStorageInfo storage(existingPart(directory_).filePath());
    const qint64 room = storage.bytesAvailable();
    if (!storage.isValid() || room < 0)
        return; // What is wrong with the directory has been said.
    const qint64 there = files_ ? QFileInfo(files_->temporaryPath).size() : 0;
    const auto missing = size_ ? static_cast<qint64>(*size_) - there : qint64(1);
    const auto needed = isInstallerHere_ ? qint64(0) : missing;
    if (room < needed)
        fail(u"room"_s,
             u"There is room for %1 in %2, and %3 are still to come."_s.arg(size(room), directory_,
                                                                            size(needed)),
             u"Make room, or choose another --directory."_s);
    else
        pass(u"room"_s, u"There is room for %1."_s.arg(size(room)));
}
