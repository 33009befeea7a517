#pragma once

#include "../Export.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace ZVPlatform {

// Small readings of text that several rooms share. Any thread may call them.

/// Whether a text means yes: after optional white space, a sign and leading zeros it starts with
/// Y, y, T, t or a digit from 1 to 9. Everything else, the empty text included, means no.
bool truthValue(const QString &text);

/// The text itself, or "(null)" for an absent one, for lines of the log.
ZVUPDATE_EXPORT QString describe(const std::optional<QString> &text);

/// Reads UTF-8 exactly, zero characters and a leading byte order mark included; absent when the
/// bytes are not valid UTF-8.
std::optional<QString> textFromUtf8(const QByteArray &utf8);

} // namespace ZVPlatform
