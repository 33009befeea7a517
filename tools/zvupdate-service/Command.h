#pragma once

#include <QString>

#include <optional>
#include <variant>

/// What a client asks for, read from its unsealed text. Clients put values into the text as they
/// are, so a value may hold an ampersand; only the known form tells where one ends.
namespace Command {

struct CheckUpdate
{
    QString productId;
    QString version;
};

struct GetToken
{
};

struct Download
{
    QString token;
    QString fileName;
};

using Any = std::variant<CheckUpdate, GetToken, Download>;

/// Absent when the text is none of the commands.
std::optional<Any> parse(const QString &text);

} // namespace Command
