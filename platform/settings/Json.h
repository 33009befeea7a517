#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

namespace ZVPlatform {

// Reading JSON that may hold anything. Any thread may call these.

/// The object that a JSON text holds; empty when the text is absent, broken, not an object,
/// or has more values than any reply.
QJsonObject jsonObject(const std::optional<QString> &text);

/// Whether a key stands twice in one object of a text, which has been read as that object: readers
/// differ in which of the two counts.
bool hasRepeatedKeys(const QString &text, const QJsonObject &object);

/// A field that ought to be a text. A number reads as its digits; one beyond 64 bits, and a field
/// that is missing or of any other type, is absent.
std::optional<QString> textField(const QJsonObject &object, QStringView key);

} // namespace ZVPlatform
