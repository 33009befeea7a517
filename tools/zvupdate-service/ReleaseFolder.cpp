#include "ReleaseFolder.h"

#include "../catalogue/CatalogueReader.h"
#include "../catalogue/Replies.h"
#include "ServiceLog.h"

ReleaseFolder::ReleaseFolder(const QString &directory)
    : directory_(directory), cataloguePath_(Catalogue::path(directory))
{
}

std::optional<QString> ReleaseFolder::load()
{
    QString error;
    contents_ = read(&error);
    return contents_ ? std::nullopt : std::optional(error);
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
    const std::lock_guard lock(contentsMutex_);
    return contents_;
}

bool ReleaseFolder::isCurrent(const Contents &contents) const
{
    return contents.catalogueStamp == FileStamp::of(cataloguePath_);
}

ReleaseFolder::ContentsPointer ReleaseFolder::refreshed(const ContentsPointer &stale)
{
    const std::lock_guard refreshLock(refreshMutex_);
    const auto now = std::chrono::steady_clock::now();
    // Another thread may have read the folder meanwhile; and a broken one is not read for every
    // request.
    if (contents() != stale || now < nextAttempt_)
        return contents();

    QString error;
    ContentsPointer fresh = read(&error);
    if (!fresh) {
        nextAttempt_ = now + std::chrono::seconds(1);
        if (error != lastError_)
            ServiceLog::note(error + QStringLiteral("; what was there before is still served"));
        lastError_ = error;
        return stale;
    }
    lastError_.clear();
    ServiceLog::note(QStringLiteral("read %1 again").arg(cataloguePath_));
    const std::lock_guard lock(contentsMutex_);
    contents_ = fresh;
    return fresh;
}

ReleaseFolder::ContentsPointer ReleaseFolder::read(QString *error)
{
    auto contents = std::make_shared<Contents>();
    contents->catalogueStamp = FileStamp::of(cataloguePath_);
    const auto catalogue = CatalogueReader::load(directory_, error);
    if (!catalogue)
        return nullptr;
    for (const Catalogue::Product &product : catalogue->products()) {
        for (const Catalogue::Release &release : product.releases)
            contents->installerPaths.insert(Catalogue::clientFileName(product.id, release.version),
                                            release.installerPath);
        if (product.releases.isEmpty())
            continue;
        const Catalogue::Release &newest = product.releases.last();
        // Taken before the digest, so that a file written meanwhile counts as changed.
        const auto stamp = FileStamp::of(newest.installerPath);
        const auto md5 = digests_.md5(newest.installerPath);
        if (!md5) {
            *error = QStringLiteral("%1: cannot be read").arg(newest.installerPath);
            return nullptr;
        }
        contents->offers.insert(product.id, {newest.version, Replies::newRelease(newest, *md5),
                                             newest.installerPath, stamp});
    }
    return contents;
}
