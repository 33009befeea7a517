#include "ReleaseFolder.h"

#include "../catalogue/Catalogue.h"
#include "../catalogue/Replies.h"
#include "../catalogue/Signing.h"
#include "ServiceLog.h"

#include <ZVUpdate/release/ReleaseStatement.h>

#include <algorithm>
#include <utility>

using namespace ZVPlatform;

namespace {

bool isStated(const ReleaseStatement &statement, const InstallerDigests::Both &digests,
              const std::optional<FileStamp> &stamp)
{
    return stamp && stamp->size == statement.size && digests.md5 == statement.md5 &&
           digests.sha256.toLatin1() == statement.sha256.toHex();
}

} // namespace

ReleaseFolder::ReleaseFolder(const QString &directory, const Oddities &oddities)
    : directory_(directory), oddities_(oddities), cataloguePath_(Catalogue::path(directory))
{
}

Result<void> ReleaseFolder::load()
{
    const MutexLock refreshLock(refreshMutex_);
    const auto contents = read();
    if (!contents)
        return Failure{contents.error()};
    const MutexLock lock(contentsMutex_);
    contents_ = *contents;
    return {};
}

std::optional<ReleaseFolder::Offer> ReleaseFolder::newestRelease(const QString &productId)
{
    const ContentsPointer now = current();
    const auto offer = now->offers.constFind(productId);
    return offer != now->offers.constEnd() ? std::optional(*offer) : std::nullopt;
}

std::optional<QString> ReleaseFolder::installerPath(const QString &clientFileName)
{
    const ContentsPointer now = current();
    const auto path = now->installerPaths.constFind(clientFileName);
    return path != now->installerPaths.constEnd() ? std::optional(*path) : std::nullopt;
}

bool ReleaseFolder::isCurrent(const Contents &contents)
{
    if (contents.expires && *contents.expires <= QDateTime::currentDateTimeUtc())
        return false;
    const auto &stamps = contents.stamps;
    return std::all_of(stamps.keyValueBegin(), stamps.keyValueEnd(),
                       [](const auto &file) { return file.second == FileStamp::of(file.first); });
}

ReleaseFolder::ContentsPointer ReleaseFolder::contents() const
{
    const MutexLock lock(contentsMutex_);
    return contents_;
}

ReleaseFolder::ContentsPointer ReleaseFolder::current()
{
    const ContentsPointer now = contents();
    return isCurrent(*now) ? now : refreshed(now);
}

ReleaseFolder::ContentsPointer ReleaseFolder::refreshed(const ContentsPointer &stale)
{
    const MutexLock refreshLock(refreshMutex_);
    const auto now = std::chrono::steady_clock::now();
    // Another thread may have read the folder meanwhile; and a broken one is not read for every
    // request.
    if (contents() != stale || now < nextAttempt_)
        return contents();

    const auto fresh = read();
    if (!fresh) {
        nextAttempt_ = now + std::chrono::seconds(1);
        if (fresh.error() != lastError_)
            ServiceLog::note(fresh.error() +
                             QStringLiteral("; what was there before is still served"));
        lastError_ = fresh.error();
        return stale;
    }
    lastError_.clear();
    ServiceLog::note(QStringLiteral("read %1 again").arg(cataloguePath_));
    const MutexLock lock(contentsMutex_);
    contents_ = *fresh;
    return *fresh;
}

Result<ReleaseFolder::ContentsPointer> ReleaseFolder::read()
{
    auto contents = std::make_shared<Contents>();
    contents->stamps.insert(cataloguePath_, FileStamp::of(cataloguePath_));
    const auto products = Catalogue::load(directory_);
    if (!products)
        return Failure{products.error()};
    // Taken before the releases are looked at: what expires meanwhile has them looked at again.
    const auto now = QDateTime::currentDateTimeUtc();
    const auto offers = Signing::offers(*products, oddities_.allowsUnsigned);
    for (const QString &refused : offers.refused)
        ServiceLog::note(refused);
    for (const Catalogue::Product &product : offers.products) {
        auto releases = product.releases;
        std::reverse(releases.begin(), releases.end());
        for (const Catalogue::Release &release : std::as_const(releases)) {
            if (const auto added = add(product.id, release, now, contents.get()); !added)
                return Failure{added.error()};
        }
    }
    return ContentsPointer(contents);
}

Result<void> ReleaseFolder::add(const QString &productId, const Catalogue::Release &release,
                                const QDateTime &now, Contents *contents)
{
    const QString &path = release.installerPath;
    const bool isSigned = !release.signatures.isEmpty();
    const bool isNewest = !contents->offers.contains(productId);
    // Taken before the digest, so that a file written meanwhile counts as changed.
    if ((isSigned || isNewest) && !contents->stamps.contains(path))
        contents->stamps.insert(path, FileStamp::of(path));
    if (isSigned) {
        const auto digests = digests_.bothOnce(path);
        const auto statement = ReleaseStatement::read(release.statement);
        if (!digests || !statement || !isStated(*statement, *digests, contents->stamps[path])) {
            ServiceLog::note(QStringLiteral("%1 %2 is not offered: %3 cannot be read, or is not "
                                            "the file that the maker has signed; put that back")
                                 .arg(productId, release.version, path));
            return {};
        }
        if (statement->expires > now)
            contents->expires =
                std::min(contents->expires.value_or(*statement->expires), *statement->expires);
    }
    if (isNewest) {
        const auto md5 = digests_.md5(path);
        if (!md5)
            return Failure{QStringLiteral("%1: cannot be read").arg(path)};
        contents->offers.insert(productId, offerOf(release, *md5));
    }
    contents->installerPaths.insert(release.fileName, path);
    return {};
}

ReleaseFolder::Offer ReleaseFolder::offerOf(Catalogue::Release release, QString md5) const
{
    if (oddities_.hasWrongDigest) {
        const QByteArray right = md5.toLatin1();
        md5.front() = md5.front() == u'0' ? u'1' : u'0';
        release.statement.replace(right, md5.toLatin1());
    }
    return {release.version, Replies::newRelease(release, md5)};
}
