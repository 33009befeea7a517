#pragma once

#include "support/TestFiles.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <csignal>

#include <unistd.h>

/// A host that the tests run.
struct Example
{
    const char *name = nullptr;
    /// What runs it, if it is no program by itself.
    const char *interpreter = "";
    /// Empty when it was not built.
    const char *path = "";
    /// Whether it installs the update itself, and has nothing opened.
    bool takesTheStepOver = false;
};

/// Nothing is sent to 0, which is no process but the tests' own group.
inline bool sendTo(qint64 process, int signal)
{
    return process != 0 && kill(static_cast<pid_t>(process), signal) == 0;
}

inline bool isHere(const Example &example)
{
    const QString interpreter = QString::fromLatin1(example.interpreter);
    return *example.path &&
           (interpreter.isEmpty() || !QStandardPaths::findExecutable(interpreter).isEmpty());
}

/// An example, running in a process group of its own, as a shell would have it.
class Host
{
public:
    Host(const Example &example, const char *choice)
    {
        qputenv("ZVUPDATE_TEST_CHOICE", choice);
        QStringList command{QString::fromLatin1(example.interpreter),
                            QString::fromLocal8Bit(example.path)};
        command.removeAll(QString());
        process_.setChildProcessModifier([] {
            setpgid(0, 0);
            std::signal(SIGINT, SIG_DFL); // Whoever runs the tests may have it ignored.
        });
        process_.start(command.takeFirst(), command);
        EXPECT_TRUE(process_.waitForStarted()) << qPrintable(process_.errorString());
    }

    ~Host()
    {
        sendToGroup(SIGKILL);
        process_.waitForFinished();
    }

    void send(int signal) const { sendTo(process_.processId(), signal); }
    /// What a terminal does upon Ctrl-C.
    void sendToGroup(int signal) const { sendTo(-process_.processId(), signal); }

    QString output()
    {
        output_ += process_.readAllStandardOutput();
        return QString::fromUtf8(output_);
    }

    /// Its exit status; -1 when it does not end in order or in time.
    int end()
    {
        if (process_.state() != QProcess::NotRunning && !process_.waitForFinished())
            return -1;
        return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
    }

private:
    QProcess process_;
    QByteArray output_;
};

/// A home with programs of its own, the tools, and a user who sits before no screen and chooses at
/// the window what a host has been told.
class Desktop : public testing::Test
{
protected:
    Desktop()
    {
        QDir(programs_).removeRecursively();
        QDir().mkpath(programs_);
        qputenv("PATH", QFile::encodeName(programs_) + ":" ZVUPDATE_BIN ":" + qgetenv("PATH"));
        qputenv("XDG_DATA_HOME", QFile::encodeName(QDir::homePath() + QStringLiteral("/data")));
        qputenv("LC_ALL", "C.UTF-8");
        qunsetenv("LANGUAGE");
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("QT_PLUGIN_PATH", ZVUPDATE_PLUGINS);
        qputenv("QT_QPA_GENERIC_PLUGINS", "zvupdate-prompt-chooser");
    }

    /// Makes a program of the desktop's, a shell script.
    void addProgram(const char *name, const QByteArray &script) const
    {
        writeProgram(programs_ + QLatin1Char('/') + QLatin1String(name), "#!/bin/sh\n" + script);
    }
    static void writeProgram(const QString &path, const QByteArray &content)
    {
        writeFile(path, content);
        QFile::setPermissions(path, QFile::Permissions(0x7755));
    }

    const QString programs_ = QDir::homePath() + QStringLiteral("/programs");
};
