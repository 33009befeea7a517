#include "CatalogueHistory.h"

#include "FilePlacing.h"

#include "../catalogue/Catalogue.h"
#include "../catalogue/RegularFile.h"

#include <QDir>
#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Result<void> write(const QString &path, const QByteArray &bytes)
{
    auto written = FilePlacing::write(path, bytes);
    return written ? written : Failure{written.error() + u"; the catalogue is as it was"_s};
}

} // namespace

CatalogueHistory::CatalogueHistory(const QString &directory)
    : catalogue_(Catalogue::path(directory)),
      folder_(QDir(directory).filePath(u".zvupdate-publish.history"_s))
{
}

QList<QByteArray> CatalogueHistory::states() const
{
    QList<QByteArray> result;
    const QList<int> all = numbers();
    for (const int number : all)
        result.append(state(number));
    return result;
}

Result<void> CatalogueHistory::change(const QByteArray &before, const QByteArray &after)
{
    auto done = keep(before);
    if (done)
        done = write(catalogue_, after);
    // Without it a later change is taken back together with this one, which is no reason to fail.
    if (done)
        static_cast<void>(keep(after));
    return done;
}

std::optional<int> CatalogueHistory::before(const QByteArray &current) const
{
    QList<int> all = numbers();
    const auto isCurrent = [&](int number) { return state(number) == current; };
    const auto newest = std::find_if(all.crbegin(), all.crend(), isCurrent);
    if (newest != all.crend())
        all.resize(all.crend() - newest - 1);
    return all.isEmpty() ? std::nullopt : std::optional(all.last());
}

QByteArray CatalogueHistory::state(int number) const
{
    const auto bytes = RegularFile::read(pathOf(number));
    return bytes ? *bytes : QByteArray();
}

qsizetype CatalogueHistory::countBefore(int number) const
{
    const QList<int> all = numbers();
    return std::count_if(all.begin(), all.end(), [number](int each) { return each < number; });
}

Result<void> CatalogueHistory::goBackTo(int number)
{
    const auto bytes = RegularFile::read(pathOf(number));
    if (!bytes)
        return Failure{u"%1: cannot be read: %2; the catalogue is as it was"_s.arg(pathOf(number),
                                                                                   bytes.error())};
    if (auto written = write(catalogue_, *bytes); !written)
        return written;
    QList<int> all = numbers();
    // The newest first: of a run that is killed meanwhile no gap is left.
    while (!all.isEmpty() && all.last() > number)
        QFile::remove(pathOf(all.takeLast()));
    return {};
}

QString CatalogueHistory::pathOf(int number) const
{
    return folder_ + u"/%1.json"_s.arg(number);
}

QList<int> CatalogueHistory::numbers() const
{
    QList<int> result;
    const QStringList names = QDir(folder_).entryList({u"*.json"_s}, QDir::Files);
    for (const QString &name : names) {
        if (const int number = name.chopped(5).toInt(); name == u"%1.json"_s.arg(number))
            result.append(number);
    }
    std::sort(result.begin(), result.end());
    return result;
}

Result<void> CatalogueHistory::keep(const QByteArray &state)
{
    QList<int> all = numbers();
    if (!all.isEmpty() && this->state(all.last()) == state)
        return {};
    if (!QDir().mkpath(folder_))
        return Failure{u"%1: cannot be made; make the catalogue's folder writable"_s.arg(folder_)};
    all.append(all.isEmpty() ? 1 : all.last() + 1);
    if (auto written = write(pathOf(all.last()), state); !written)
        return written;
    while (all.size() > longest + 1)
        QFile::remove(pathOf(all.takeFirst()));
    return {};
}
