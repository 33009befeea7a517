#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QString>

#include <optional>

/// A proxy that the environment names for an address.
struct ProxyInUse
{
    QString variable;
    QString address; ///< Without a password.
};

/// The proxy for requests to an address; absent when it is asked directly. Follows the environment
/// as the library does.
std::optional<ProxyInUse> proxyFor(const QString &address);

/// What an outcome is, with all that is known of it: sentences.
QString sentenceFor(const UpdateOutcome &outcome);

/// What can be done about an outcome that is none to be glad of: a sentence.
QString remedyFor(const UpdateOutcome &outcome);
