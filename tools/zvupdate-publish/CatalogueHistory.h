#pragma once

#include "../../platform/Result.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// The last states of a folder's releases.json, the one that it has now being the newest: files in
/// the folder .zvupdate-publish.history, named by ascending numbers. A run that is killed leaves
/// the catalogue either as it was or changed, and in both cases every state before it. For who
/// holds the folder's lock, but for reading.
class CatalogueHistory
{
public:
    /// So many states can be gone back.
    static constexpr qsizetype longest = 20;

    explicit CatalogueHistory(const QString &directory);

    /// All states, oldest first.
    QList<QByteArray> states() const;

    /// Changes the catalogue from one state to another, and keeps both.
    ZVPlatform::Result<void> change(const QByteArray &before, const QByteArray &after);

    /// The state before that, by its number. What has been changed without this program counts as
    /// a change, too.
    std::optional<int> before(const QByteArray &current) const;
    QByteArray state(int number) const;
    /// How many states there are before that one.
    qsizetype countBefore(int number) const;

    /// Makes that the catalogue's state again, and forgets all after it.
    ZVPlatform::Result<void> goBackTo(int number);

private:
    QString pathOf(int number) const;
    /// In ascending order.
    QList<int> numbers() const;
    ZVPlatform::Result<void> keep(const QByteArray &state);

    const QString catalogue_;
    const QString folder_;
};
