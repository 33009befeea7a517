#pragma once

#include "Catalogue.h"

#include <QString>
#include <QStringList>

#include <optional>

/// Which releases are offered, by the signatures that users' builds demand. The library itself is
/// asked, as it is by those builds.
namespace Signing {

/// Why users' builds would refuse a release for want of a signature; absent when all that are older
/// would take it. Where none of those has keys, but the release itself, one of its own has to have
/// signed it: a key that ships is one under which its maker can sign.
std::optional<QString> refusal(const Catalogue::Product &product,
                               const Catalogue::Release &release);

/// By which names people know the keys, of all builds of a product, that have signed a release.
QStringList signers(const Catalogue::Product &product, const Catalogue::Release &release);

/// The newest release that is not refused; null when there is none.
const Catalogue::Release *newest(const Catalogue::Product &product);

/// What clients are offered.
struct Offers
{
    /// With the releases that are offered, which may be none.
    QList<Catalogue::Product> products;
    /// Why the others are not, a line each.
    QStringList refused;
};

/// Of a catalogue's products; everything, if unsigned releases are allowed.
Offers offers(const QList<Catalogue::Product> &products, bool allowsUnsigned);

/// Why releases are not offered after a change, a line each, unless that was so before it.
QStringList newlyRefused(const QList<Catalogue::Product> &before,
                         const QList<Catalogue::Product> &after);

} // namespace Signing
