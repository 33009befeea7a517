#include "SiteFolder.h"

#include "FilePlacing.h"

#include "../catalogue/RegularFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

// Empty when it cannot be read.
QByteArray contentsOf(const QString &path)
{
    const auto bytes = RegularFile::read(path);
    return bytes ? *bytes : QByteArray();
}

QJsonObject recordAt(const QString &generationPath)
{
    return QJsonDocument::fromJson(contentsOf(generationPath + u"/site.json"_s)).object();
}

QList<std::pair<QString, QByteArray>> filesOfGeneration(const SiteContents &site,
                                                        const NginxConfig &config)
{
    // The record last: a generation that has it is whole.
    return {{u"hash.conf"_s, NginxConfig::hash(site)},
            {u"nginx.conf"_s, config.maps(site)},
            {u"locations.conf"_s, config.locations()},
            {u"site.json"_s, QJsonDocument(site.record()).toJson()}};
}

} // namespace

QList<QJsonObject> SiteFolder::records() const
{
    const int current = currentGeneration();
    QList<int> numbers = generations();
    if (!numbers.removeOne(current))
        return {};
    QList<QJsonObject> result{recordAt(generationPath(current))};
    for (const int number : std::as_const(numbers))
        result.append(recordAt(generationPath(number)));
    return result;
}

int SiteFolder::currentGeneration() const
{
    return QFileInfo(QFileInfo(path_ + u"/current"_s).symLinkTarget()).fileName().toInt();
}

bool SiteFolder::isCurrent(const SiteContents &site, const NginxConfig &config) const
{
    const auto files = filesOfGeneration(site, config);
    const QStringList names = SiteContents::filesOf(site.record());
    return std::all_of(files.begin(), files.end(),
                       [this](const auto &file) {
                           return contentsOf(path_ + u"/current/"_s + file.first) == file.second;
                       }) &&
           std::all_of(names.begin(), names.end(),
                       [this](const QString &name) { return QFileInfo::exists(path_ + name); });
}

qint64 SiteFolder::missingBytes(const SiteContents &site) const
{
    qint64 bytes = 0;
    const auto &installers = site.installerFiles;
    for (auto file = installers.begin(); file != installers.end(); ++file)
        bytes += QFileInfo::exists(path_ + file.key()) ? 0 : QFileInfo(file->path).size();
    return bytes;
}

Result<void> SiteFolder::publish(const SiteContents &site, const NginxConfig &config,
                                 const PieceDone &done)
{
    const QList<int> before = generations();
    const int number = before.isEmpty() ? 1 : before.last() + 1;
    const QDir folder(path_);
    for (const QString &name : {u"installers"_s, u"replies"_s, u"generations/%1"_s.arg(number)}) {
        if (!folder.mkpath(name))
            return Failure{u"%1/%2: cannot be made; make the folder writable"_s.arg(path_, name)};
    }
    auto written = writeFiles(site, done);
    const auto files = filesOfGeneration(site, config);
    for (auto file = files.begin(); written && file != files.end(); ++file)
        written = FilePlacing::write(generationPath(number) + u'/' + file->first, file->second);
    return written ? makeCurrent(number) : written;
}

Result<int> SiteFolder::goBack(std::optional<int> wanted, bool allowsUnsigned, bool isDryRun)
{
    QList<int> numbers = generations();
    const int current = currentGeneration();
    if (!wanted) {
        numbers.removeIf([&](int number) {
            return number >= current || recordAt(generationPath(number)).isEmpty();
        });
        if (numbers.isEmpty())
            return Failure{
                u"%1: has no site before the current one; publish one by \"site\""_s.arg(path_)};
        wanted = numbers.last();
    }
    auto done = check(*wanted, allowsUnsigned);
    if (done && !isDryRun)
        done = makeCurrent(*wanted);
    return done ? Result<int>(*wanted) : Failure{done.error()};
}

qsizetype SiteFolder::removeOld(int generationsToKeep)
{
    QList<int> numbers = generations();
    // What a run has left that failed is none of those to keep.
    numbers.removeIf([this](int number) {
        const bool isWhole = !recordAt(generationPath(number)).isEmpty();
        return !isWhole && QDir(generationPath(number)).removeRecursively();
    });
    while (numbers.size() > generationsToKeep && numbers.first() != currentGeneration())
        QDir(generationPath(numbers.takeFirst())).removeRecursively();
    QSet<QString> wanted;
    for (const int number : std::as_const(numbers)) {
        const QStringList files = SiteContents::filesOf(recordAt(generationPath(number)));
        wanted.unite(QSet<QString>(files.begin(), files.end()));
    }
    qsizetype removed = 0;
    for (const QString &name : {u"/installers"_s, u"/replies"_s}) {
        QDir folder(path_ + name);
        const QStringList files = folder.entryList(QDir::Files);
        for (const QString &file : files)
            removed += !wanted.contains(name + u'/' + file) && folder.remove(file) ? 1 : 0;
    }
    return removed;
}

QString SiteFolder::generationPath(int number) const
{
    return path_ + u"/generations/%1"_s.arg(number);
}

QList<int> SiteFolder::generations() const
{
    QList<int> numbers;
    const QStringList names =
        QDir(path_ + u"/generations"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names)
        numbers.append(name.toInt());
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// A file that is there under its name already is the right one.
Result<void> SiteFolder::writeFiles(const SiteContents &site, const PieceDone &done)
{
    Result<void> written;
    const auto &replies = site.replyFiles;
    for (auto reply = replies.begin(); written && reply != replies.end(); ++reply) {
        const QString path = path_ + reply.key();
        if (!QFileInfo::exists(path))
            written = FilePlacing::write(path, reply.value());
    }
    const auto &installers = site.installerFiles;
    for (auto file = installers.begin(); written && file != installers.end(); ++file) {
        const QString path = path_ + file.key();
        if (!QFileInfo::exists(path))
            written = FilePlacing::place(file->path, path, FilePlacing::Sharing::HardLink,
                                         file->sha256, done);
    }
    return written;
}

Result<void> SiteFolder::check(int number, bool allowsUnsigned) const
{
    const QJsonObject record = recordAt(generationPath(number));
    if (record.isEmpty())
        return Failure{u"--generation: %1 is not there; give one of those in "
                       "%2/generations"_s.arg(QString::number(number), path_)};
    const QStringList files = SiteContents::filesOf(record);
    for (const QString &file : files) {
        if (!QFileInfo::exists(path_ + file))
            return Failure{u"--generation: %1 lacks the file %2; give another"_s.arg(
                QString::number(number), path_ + file)};
    }
    if (const auto refusal = SiteContents::refusal(record); refusal && !allowsUnsigned)
        return Failure{
            u"--generation: builds with release keys would refuse what %1 announces, "
            "which %2; give another, or --allow-unsigned"_s.arg(QString::number(number), *refusal)};
    return {};
}

Result<void> SiteFolder::makeCurrent(int number)
{
    const QString link = path_ + u"/current"_s;
    const QString fresh = link + u".new"_s;
    QFile::remove(fresh);
    // Relative, so that the folder can be moved.
    if (QFile::link(u"generations/%1"_s.arg(number), fresh) &&
        std::rename(QFile::encodeName(fresh).constData(), QFile::encodeName(link).constData()) == 0)
        return {};
    return Failure{u"%1: cannot be put in place: %2"_s.arg(link, qt_error_string())};
}
