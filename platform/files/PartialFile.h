#pragma once

#include "../Error.h"
#include "../Result.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace ZVPlatform {

/// The local file of one download, which grows by what arrives. It is open only while a piece is
/// written, and readable for its user alone. Of several downloads into one file, in this or other
/// processes, exactly one goes on. Used by one thread at a time.
class PartialFile
{
public:
    /// The file with that name, or none; what it holds already is to be continued.
    explicit PartialFile(const QString &path);

    /// Whether what has that name was begun in the middle, when a download had lost its file. Only
    /// that download goes on with it, and no other should.
    static bool beginsInTheMiddle(const QString &path);

    /// The size in bytes that the file has as far as this download knows.
    quint64 size() const { return size_; }

    /// Appends bytes; makes the file when it is missing. Nothing outside the directory is written:
    /// neither through a link nor into a file that has a second name. Fails when the file never
    /// will be this download's to write. A piece that could not be written otherwise, as on a full
    /// disk, is lost, and no failure: see loss().
    Result<void, Error> append(const QByteArray &bytes);

    /// Why the first piece that is lost could not be written; absent while none is.
    const std::optional<Error> &loss() const { return loss_; }

private:
    void lose(int reason);

    const QString path_;
    quint64 size_;
    bool beganInTheMiddle_ = false;
    std::optional<Error> loss_;
};

} // namespace ZVPlatform
