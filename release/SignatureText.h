#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// What files of signify and minisign, for keys and signatures, have in common: comments, and a
/// line of Base64. Any thread.
namespace SignatureText {

constexpr qsizetype algorithmSize = 2; // bytes that name the algorithm
constexpr qsizetype numberSize = 8;    // bytes of a key's number

/// The bytes of the first line that is no comment; absent when that is no Base64 or there is none.
std::optional<QByteArray> bytes(const QByteArray &text);

/// A key's number as minisign shows it.
QString numberName(const QByteArray &number);

} // namespace SignatureText
