#include "StatementFile.h"

#include "FilePlacing.h"
#include "ReleaseRecord.h"

#include "../catalogue/RegularFile.h"
#include "../catalogue/Replies.h"
#include <ZVUpdate/ZVUpdate.h>

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// With as many signatures as clients take.
bool isTooLong(const QByteArray &statement)
{
    const QString signature(104, u'0'); // As long as any in Base64.
    const Catalogue::Release release{
        {}, {}, {}, {}, statement, QStringList(ReleaseKeys::mostSignatures, signature)};
    return Replies::newRelease(release, QString()).size() > Replies::longest;
}

// The name of the service's file without what only looks like an executable.
QString nameOf(const ReleaseStatement &statement)
{
    const auto files = UpdateFiles::named({}, statement.product, statement.version);
    return files ? QFileInfo(files->serviceFileName).completeBaseName() : QString();
}

} // namespace

Result<void> StatementFile::write(const CatalogueFile &catalogue, const ReleaseStatement &statement,
                                  bool isDryRun, QJsonObject *record)
{
    const Catalogue::Release release{
        statement.version, {}, {}, ReleaseRecord::notesOf(record->value(u"notes"_s).toObject())};
    const QByteArray bytes =
        Replies::announcement(release, statement.md5, statement.signedMember());
    if (isTooLong(bytes))
        return Failure{
            u"--notes: with these notes and its signatures clients would refuse the reply, which "
            "may have %1 bytes; shorten them"_s.arg(Replies::longest)};

    const QString folder = QFileInfo(record->value(u"installer"_s).toString()).path();
    const QString start = QDir::cleanPath(folder + u'/' + nameOf(statement));
    QString path = start + u".statement"_s;
    const auto file = [&] { return catalogue.directory() + u'/' + path; };
    const auto isOther = [&] {
        const auto before = RegularFile::read(file());
        return QFileInfo::exists(file()) && !(before && *before == bytes);
    };
    for (int i = 2; isOther(); ++i)
        path = u"%1-%2.statement"_s.arg(start, QString::number(i));
    if (record->value(u"statement"_s) != path)
        record->remove(u"signatures"_s);
    record->insert(u"statement"_s, path);
    if (isDryRun)
        return {};
    auto written = FilePlacing::write(file(), bytes);
    return written ? written : Failure{written.error() + u"; the catalogue is as it was"_s};
}
