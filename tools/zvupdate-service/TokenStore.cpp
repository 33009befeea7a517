#include "TokenStore.h"

#include <QByteArray>
#include <QRandomGenerator>

#include <array>

namespace {

QString randomToken()
{
    std::array<quint32, 4> bits = {}; // 128 bits, too many to guess
    QRandomGenerator::system()->fillRange(bits.data(), bits.size());
    const QByteArray bytes(reinterpret_cast<const char *>(bits.data()), sizeof bits);
    return QString::fromLatin1(bytes.toHex());
}

} // namespace

TokenStore::TokenStore(std::chrono::seconds lifetime, qsizetype capacity)
    : lifetime_(lifetime), capacity_(capacity)
{
}

QString TokenStore::issue(TimePoint now)
{
    const QString token = randomToken();
    const ZVPlatform::MutexLock lock(mutex_);
    while (!oldestFirst_.isEmpty() &&
           (oldestFirst_.size() >= capacity_ || expiries_.value(oldestFirst_.head()) <= now))
        expiries_.remove(oldestFirst_.dequeue());
    expiries_.insert(token, now + lifetime_);
    oldestFirst_.enqueue(token);
    return token;
}

bool TokenStore::isGood(const QString &token, TimePoint now) const
{
    const ZVPlatform::MutexLock lock(mutex_);
    const auto expiry = expiries_.constFind(token);
    return expiry != expiries_.constEnd() && now < *expiry;
}
