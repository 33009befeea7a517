#pragma once

#include "../support/Testing.h"
#include "../zvupdate/Tool.h"

/// A folder with what is to be replaced, and what stands by it.
class Installation : public testing::Test
{
protected:
    QString path(const char *name) const { return folder_.filePath(QString::fromUtf8(name)); }

    /// A program that notes that it runs, how and where, if in a session of its own; and lives for
    /// a while.
    static QByteArray program(const QByteArray &version, const QByteArray &end = "sleep 3")
    {
        return "#!/bin/sh\nread -r _ _ _ _ _ session _ < /proc/$$/stat\n[ $session = $$ ] && "
               "echo " +
               version + " \"$PWD\" \"$MARK$LD_LIBRARY_PATH\" \"$@\" >> \"$OUT\"\n" + end + "\n";
    }

    QString write(const char *name, const QByteArray &content, bool isExecutable = false) const
    {
        QDir().mkpath(QFileInfo(path(name)).path());
        writeFile(path(name), content);
        QFile::setPermissions(path(name), isExecutable ? QFile::Permissions(0x7755)
                                                       : QFile::Permissions(0x6644));
        return path(name);
    }

    QMap<QString, QByteArray> tree() const { return treeOf(folder_.path()); }

    /// Runs it, and sees that it says one sentence.
    Tool::End replace(const char *installer, const char *target, const QStringList &more = {}) const
    {
        const Tool::End end = Tool::run(QStringList{QStringLiteral("--installer"), path(installer),
                                                    QStringLiteral("--replace"), path(target)} +
                                        more);
        EXPECT_EQ(end.errors.count(QLatin1Char('\n')), 1) << qPrintable(end.errors);
        return end;
    }

    const QTemporaryDir folder_;
};
