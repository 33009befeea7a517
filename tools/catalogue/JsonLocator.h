#pragma once

#include <QByteArray>
#include <QStringList>

/// The way to a value inside a JSON text: member names and array indexes, outermost first.
using JsonPath = QStringList;

/// Finds where in a JSON text a value stands, so that a complaint about the value can name its
/// line. The JSON reader itself gives positions only for texts that do not parse.
class JsonLocator
{
public:
    struct Position
    {
        /// Both count from 1; columns count characters.
        qsizetype line;
        qsizetype column;
    };

    /// The text must be valid JSON for positionOf() to be of use.
    explicit JsonLocator(const QByteArray &json) : json_(json) {}

    /// Where the value at path begins. A path that leads nowhere ends at the innermost value on it
    /// that exists.
    Position positionOf(const JsonPath &path);

    /// Where the byte at offset stands.
    Position positionAt(qsizetype offset) const;

private:
    char current() const { return offset_ < json_.size() ? json_.at(offset_) : '\0'; }
    void skipSpace();
    void skipString();
    void skipValue();
    bool enterMember(const QString &name);
    bool enterElement(qsizetype index);

    const QByteArray json_;
    qsizetype offset_ = 0;
};
