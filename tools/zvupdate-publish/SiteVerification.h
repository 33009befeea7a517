#pragma once

#include "CatalogueFile.h"

#include <QList>
#include <QTemporaryDir>

#include <functional>

/// Plays clients of a service, with the library itself, and compares what they are given with what
/// the catalogue says. Needs an event loop's thread.
class SiteVerification
{
public:
    /// What one client met.
    struct Finding
    {
        QString productId;
        QString version;
        /// "check" or "download".
        QString exchange;
        /// Empty when all is as it should be.
        QStringList differences;
    };

    SiteVerification(const QString &baseUrl, const CatalogueFile &catalogue);

    /// Tells each finding as it is made. What kept all from being looked at, if anything.
    std::optional<QString> run(const std::function<void(const Finding &)> &tell);

private:
    QStringList check(const Catalogue::Product &product, const QString &version,
                      bool isOffered) const;
    QStringList download(const Catalogue::Product &product, const Catalogue::Release &release);
    QStringList compare(const QString &local, const Catalogue::Release &release,
                        const QString &what) const;
    std::optional<QString> fetch(const QString &fileName, const QString &local,
                                 qint64 longest) const;

    const QString baseUrl_;
    const CatalogueFile &catalogue_;
    const QTemporaryDir folder_;
    QString token_;
};
