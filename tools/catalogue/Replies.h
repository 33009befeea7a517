#pragma once

#include "Catalogue.h"

#include <QByteArray>
#include <QString>

/// The JSON texts that answer commands.
namespace Replies {

/// Clients refuse a reply of more bytes than this.
constexpr qsizetype longest = 2 * 1024 * 1024;

/// The command did not succeed, and why.
QByteArray refusal(const QString &reason);

/// A download token.
QByteArray token(const QString &token);

/// A release that is newer than the client's: its version, its installer's digest and its notes,
/// sealed.
QByteArray newRelease(const Catalogue::Release &release, const QString &md5);

} // namespace Replies
