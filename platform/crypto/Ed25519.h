#pragma once

#include "../Result.h"

#include <QByteArray>

namespace ZVPlatform {

// Ed25519 signatures, as OpenSSL checks them. Any thread.

constexpr qsizetype ed25519KeySize = 32;       // bytes of a public key
constexpr qsizetype ed25519SignatureSize = 64; // bytes of a signature

/// Whether a signature is that of a message under a public key. False also when one of the two has
/// another size, or is no signature or key at all.
bool isEd25519Signature(const QByteArray &signature, const QByteArray &message,
                        const QByteArray &publicKey);

/// The bytes of an Ed25519 public key that PEM holds. Fails with half a sentence when that is
/// something else.
Result<QByteArray> ed25519KeyFromPem(const QByteArray &pem);

/// The BLAKE2b digest of 64 bytes; empty where OpenSSL refuses it.
QByteArray blake2b512(const QByteArray &message);

} // namespace ZVPlatform
