#include "Signing.h"

#include "Replies.h"
#include <ZVUpdate/platform/settings/VersionOrder.h>
#include <ZVUpdate/release/ReleaseSignature.h>
#include <ZVUpdate/service/CheckUpdateResponse.h>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;
using Catalogue::Build;
using Catalogue::Product;
using Catalogue::Release;

namespace {

QString namesOf(const ReleaseKeys &keys)
{
    QStringList names;
    for (const ReleaseKey &key : keys.keys())
        names.append(key.name());
    return names.join(u", "_s);
}

std::optional<QString> refusalBy(const Build &build, const CheckUpdateResponse &reply,
                                 const Product &product, const Release &release)
{
    const bool isItself = build.version == release.version;
    // Nothing is newer than itself.
    const auto taken =
        reply.signedRelease(build.keys, product.id, isItself ? QString() : build.version);
    if (taken && taken->version == release.version)
        return std::nullopt;
    if (taken)
        return u"what is signed is version %1"_s.arg(taken->version);
    if (build.keys.signer(reply.statement(), reply.signatures()))
        return u"version %1 would refuse it: %2"_s.arg(build.version,
                                                       taken.error().message.chopped(1));
    const QString keys = namesOf(build.keys);
    return isItself
               ? u"it is signed under none of its own keys, %1"_s.arg(keys)
               : u"version %1 would refuse it, as it is signed under none of its keys, %2"_s.arg(
                     build.version, keys);
}

} // namespace

std::optional<QString> Signing::refusal(const Product &product, const Release &release)
{
    QList<Build> builds;
    for (const Build &build : product.builds) {
        const auto order = compareVersions(build.version, release.version);
        if (order < 0 || (order == 0 && builds.isEmpty()))
            builds.append(build);
    }
    if (builds.isEmpty())
        return std::nullopt;
    const auto reply = CheckUpdateResponse::getFromJson(
        QString::fromUtf8(Replies::newRelease(release, QString())));
    for (const Build &build : std::as_const(builds)) {
        if (auto refused = refusalBy(build, *reply, product, release))
            return refused;
    }
    return std::nullopt;
}

QStringList Signing::signers(const Product &product, const Release &release)
{
    QStringList names;
    for (const Build &build : product.builds) {
        for (const ReleaseKey &key : build.keys.keys()) {
            const auto isSignedBy = [&](const QString &text) {
                const auto signature = ReleaseSignature::fromBase64(text);
                return signature && signature->fits(release.statement, key);
            };
            if (!names.contains(key.name()) &&
                std::any_of(release.signatures.begin(), release.signatures.end(), isSignedBy))
                names.append(key.name());
        }
    }
    return names;
}

const Release *Signing::newest(const Product &product)
{
    const auto found =
        std::find_if(product.releases.rbegin(), product.releases.rend(),
                     [&product](const Release &release) { return !refusal(product, release); });
    return found == product.releases.rend() ? nullptr : &*found;
}

Signing::Offers Signing::offers(const QList<Product> &products, bool allowsUnsigned)
{
    Offers result{products, {}};
    if (allowsUnsigned)
        return result;
    for (Product &product : result.products) {
        product.releases.removeIf([&](const Release &release) {
            const auto refused = refusal(product, release);
            if (refused)
                result.refused.append(
                    u"%1 %2 is not offered: %3; see \"zvupdate-publish sign\" and \"attach\""_s.arg(
                        product.id, release.version, *refused));
            return refused.has_value();
        });
    }
    return result;
}

QStringList Signing::newlyRefused(const QList<Product> &before, const QList<Product> &after)
{
    const QStringList known = offers(before, false).refused;
    QStringList refused = offers(after, false).refused;
    refused.removeIf([&known](const QString &line) { return known.contains(line); });
    return refused;
}
