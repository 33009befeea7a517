#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QString>

#include <optional>

/// A proxy that the environment names.
struct NamedProxy
{
    QString variable;
    QString address; ///< Without name and password; empty when the value is no address.
};

/// The proxy for requests to an address, if its host is not exempt; absent when there is none.
std::optional<NamedProxy> proxyFor(const QString &address);

/// What an outcome is, with all that is known of it: sentences.
QString sentenceFor(const UpdateOutcome &outcome);

/// What can be done about an outcome that is none to be glad of: a sentence.
QString remedyFor(const UpdateOutcome &outcome);
