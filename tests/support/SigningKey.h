#pragma once

#include <QByteArray>

#include <memory>

/// A maker's pair of keys.
class SigningKey
{
public:
    /// A pair of its own for each seed.
    explicit SigningKey(char seed = 's');

    /// The 32 bytes of the public key.
    QByteArray bytes() const;
    /// The public key as the usual tools write it.
    QByteArray line() const { return ("Ed" + number_ + bytes()).toBase64(); }
    /// The 64 bytes of a signature.
    QByteArray sign(const QByteArray &message) const;
    /// A signature as it stands in a reply.
    QByteArray signature(const QByteArray &message) const
    {
        return ("Ed" + number_ + sign(message)).toBase64();
    }

private:
    const QByteArray number_{"12345678"};
    const std::shared_ptr<void> key_;
};
