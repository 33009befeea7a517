#include "FaultsInForce.h"

#include "../catalogue/RegularFile.h"
#include "ServiceLog.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 longestFile = 4096;

} // namespace

FaultsInForce::FaultsInForce(const QString &directory, const Faults &ofCommandLine)
    : path_(QDir(directory).filePath(u"faults"_s)), ofCommandLine_(ofCommandLine)
{
}

std::optional<QString> FaultsInForce::load()
{
    contents_ = contents();
    QString error;
    const auto faults = parse(contents_, &error);
    if (!faults)
        return error;
    faults_ = *faults;
    if (faults_.toString() != Faults().toString())
        ServiceLog::note(u"faults: "_s + faults_.toString());
    return std::nullopt;
}

Faults FaultsInForce::now()
{
    const std::lock_guard lock(mutex_);
    const auto fresh = contents();
    if (fresh == contents_)
        return faults_;
    contents_ = fresh;
    QString error;
    if (const auto faults = parse(fresh, &error)) {
        faults_ = *faults;
        ServiceLog::note(u"faults: "_s + faults_.toString());
    } else {
        ServiceLog::note(u"%1; what was in force stays: %2"_s.arg(error, faults_.toString()));
    }
    return faults_;
}

std::optional<QByteArray> FaultsInForce::contents() const
{
    const FileDescriptor opened = RegularFile::open(path_);
    QFile file;
    if (!opened.isOpen() || !file.open(opened.get(), QIODevice::ReadOnly))
        return std::nullopt;
    return file.read(longestFile);
}

std::optional<Faults> FaultsInForce::parse(const std::optional<QByteArray> &contents,
                                           QString *error) const
{
    if (!contents)
        return ofCommandLine_;
    Faults faults;
    const QStringList lines = QString::fromUtf8(*contents).split(u'\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString text = lines[i].section(u'#', 0, 0).trimmed();
        if (text.isEmpty())
            continue;
        if (const auto wrong = faults.add(text)) {
            *error = u"%1:%2: %3"_s.arg(path_).arg(i + 1).arg(*wrong);
            return std::nullopt;
        }
    }
    return faults;
}
