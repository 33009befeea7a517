#include "ReleaseFolder.h"

#include "../catalogue/Catalogue.h"
#include "../catalogue/Replies.h"
#include "../catalogue/Signing.h"
#include "ServiceLog.h"

#include <ZVUpdate/release/ReleaseStatement.h>

using namespace ZVPlatform;

namespace {

// Whether an installer is the one that the maker has signed, if so.
bool isAsSigned(const Catalogue::Release &release, const QString &md5)
{
    const auto statement = ReleaseStatement::read(release.statement);
    return release.signatures.isEmpty() || (statement && statement->md5 == md5);
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
    ContentsPointer now = contents();
    auto offer = now->offers.constFind(productId);
    const bool found = offer != now->offers.constEnd();
    if (!isCurrent(*now) || (found && offer->installerStamp != FileStamp::of(offer->installerPath)))
        now = refreshed(now);
    offer = now->offers.constFind(productId);
    return offer != now->offers.constEnd() ? std::optional(*offer) : std::nullopt;
}

std::optional<QString> ReleaseFolder::installerPath(const QString &clientFileName)
{
    ContentsPointer now = contents();
    if (!isCurrent(*now))
        now = refreshed(now);
    const auto path = now->installerPaths.constFind(clientFileName);
    return path != now->installerPaths.constEnd() ? std::optional(*path) : std::nullopt;
}

ReleaseFolder::ContentsPointer ReleaseFolder::contents() const
{
    const MutexLock lock(contentsMutex_);
    return contents_;
}

bool ReleaseFolder::isCurrent(const Contents &contents) const
{
    return contents.catalogueStamp == FileStamp::of(cataloguePath_);
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
    contents->catalogueStamp = FileStamp::of(cataloguePath_);
    const auto products = Catalogue::load(directory_);
    if (!products)
        return Failure{products.error()};
    const auto offers = Signing::offers(*products, oddities_.allowsUnsigned);
    for (const QString &refused : offers.refused)
        ServiceLog::note(refused);
    for (const Catalogue::Product &product : offers.products) {
        for (const Catalogue::Release &release : product.releases)
            contents->installerPaths.insert(release.fileName, release.installerPath);
        if (product.releases.isEmpty())
            continue;
        Catalogue::Release newest = product.releases.last();
        // Taken before the digest, so that a file written meanwhile counts as changed.
        const auto stamp = FileStamp::of(newest.installerPath);
        auto md5 = digests_.md5(newest.installerPath);
        if (!md5)
            return Failure{QStringLiteral("%1: cannot be read").arg(newest.installerPath)};
        if (!isAsSigned(newest, *md5))
            return Failure{QStringLiteral("%1: is not the file that the maker has signed; put that "
                                          "back")
                               .arg(newest.installerPath)};
        if (oddities_.hasWrongDigest) {
            const QByteArray right = md5->toLatin1();
            md5->front() = md5->front() == u'0' ? u'1' : u'0';
            newest.statement.replace(right, md5->toLatin1());
        }
        contents->offers.insert(product.id, {newest.version, Replies::newRelease(newest, *md5),
                                             newest.installerPath, stamp});
    }
    return ContentsPointer(contents);
}
