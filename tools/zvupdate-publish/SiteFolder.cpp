#include "SiteFolder.h"

#include "FilePlacing.h"

#include "../catalogue/RegularFile.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

std::optional<QString> write(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit())
        return std::nullopt;
    return u"%1: cannot be written: %2"_s.arg(path, file.errorString());
}

QByteArray contentsOf(const QString &path)
{
    const FileDescriptor opened = RegularFile::open(path);
    QFile file;
    const bool isOpen = opened.isOpen() && file.open(opened.get(), QIODevice::ReadOnly);
    return isOpen ? file.readAll() : QByteArray();
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

QJsonObject SiteFolder::currentRecord() const
{
    return recordAt(path_ + u"/current"_s);
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

std::optional<QString> SiteFolder::publish(const SiteContents &site, const NginxConfig &config)
{
    const QList<int> before = generations();
    const int number = before.isEmpty() ? 1 : before.last() + 1;
    const QDir folder(path_);
    for (const QString &name : {u"installers"_s, u"replies"_s, u"generations/%1"_s.arg(number)}) {
        if (!folder.mkpath(name))
            return u"%1/%2: cannot be made; make the folder writable"_s.arg(path_, name);
    }
    if (const auto failure = writeFiles(site))
        return failure;
    const auto files = filesOfGeneration(site, config);
    for (const auto &[name, bytes] : files) {
        if (const auto failure = write(generationPath(number) + u'/' + name, bytes))
            return failure;
    }
    return makeCurrent(number);
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
std::optional<QString> SiteFolder::writeFiles(const SiteContents &site)
{
    for (auto reply = site.replyFiles.begin(); reply != site.replyFiles.end(); ++reply) {
        const QString path = path_ + reply.key();
        if (const auto failure =
                QFileInfo::exists(path) ? std::nullopt : write(path, reply.value()))
            return failure;
    }
    for (auto installer = site.installerFiles.begin(); installer != site.installerFiles.end();
         ++installer) {
        const QString path = path_ + installer.key();
        if (QFileInfo::exists(path))
            continue;
        if (const auto failure =
                FilePlacing::place(installer.value(), path, FilePlacing::Sharing::HardLink))
            return failure;
    }
    return std::nullopt;
}

std::optional<QString> SiteFolder::makeCurrent(int number)
{
    const QString link = path_ + u"/current"_s;
    const QString fresh = link + u".new"_s;
    QFile::remove(fresh);
    // Relative, so that the folder can be moved.
    if (QFile::link(u"generations/%1"_s.arg(number), fresh) &&
        std::rename(QFile::encodeName(fresh).constData(), QFile::encodeName(link).constData()) == 0)
        return std::nullopt;
    return u"%1: cannot be put in place: %2"_s.arg(
        link, QString::fromStdString(std::generic_category().message(errno)));
}
