#pragma once

#include "Catalogue.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

/// The JSON texts that answer commands.
namespace Replies {

/// Clients refuse a reply of more bytes than this.
constexpr qsizetype longest = 2 * 1024 * 1024;

/// The command did not succeed, and why.
QByteArray refusal(const QString &reason);

/// A download token.
QByteArray token(const QString &token);

/// What announces a release, before it is sealed: its version, its installer's digest and its
/// notes. With the member that makes it a statement which the maker can sign, unless that is empty.
QByteArray announcement(const Catalogue::Release &release, const QString &md5,
                        const QJsonObject &signedMember = {});

/// A release that is newer than the client's: its announcement, sealed. Of a release that is
/// signed, the statement as it stands with its signatures, and nothing else counts.
QByteArray newRelease(const Catalogue::Release &release, const QString &md5);

} // namespace Replies
