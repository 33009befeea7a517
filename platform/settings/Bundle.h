#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace ZVPlatform {

/// A folder of resources. Its strings tables lie one level below it, in one folder a language that
/// bears the language's identifier with the extension "lproj".
class Bundle
{
public:
    /// The bundle of this library, which is built into it.
    static Bundle framework();

    explicit Bundle(const QString &path) : path_(path) {}

    /// The identifiers of the languages that have a folder.
    QStringList localizations() const;

    /// Where the resource lies; absent when there is none.
    std::optional<QString> pathForResource(const QString &name, const QString &type) const;

    /// The text for a key in a table of this folder itself; the key when table or text is missing.
    /// Without the name of a table, the default one answers.
    QString localizedString(const QString &key,
                            const std::optional<QString> &table = std::nullopt) const;

private:
    QString path_;
};

} // namespace ZVPlatform
