#include "Tool.h"
#include "../../platform/Export.h"
#include "../support/Testing.h"

#include <QJsonDocument>

#include <csignal>

#include <unistd.h>

// Read by thread sanitizer. It takes the way in which Qt starts a process for a fork of the test,
// which must not start threads then; the program itself is watched as ever.
extern "C" ZVUPDATE_EXPORT const char *__tsan_default_options()
{
    return "die_after_fork=0";
}

Tool::Tool(const QStringList &arguments, int standardOutput, const QString &locale)
{
    if (!locale.isEmpty()) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), locale);
        process_.setProcessEnvironment(environment);
    }
    if (standardOutput >= 0)
        process_.setChildProcessModifier([standardOutput] { dup2(standardOutput, STDOUT_FILENO); });
    process_.start(QStringLiteral(ZVUPDATE_PROGRAM), arguments, QIODevice::ReadOnly);
    EXPECT_TRUE(process_.waitForStarted()) << qPrintable(process_.errorString());
}

Tool::~Tool()
{
    process_.kill();
    process_.waitForFinished();
}

Tool::End Tool::run(const QStringList &arguments)
{
    return Tool(arguments).end();
}

void Tool::expectRefusal(const QStringList &arguments, const QString &named)
{
    const auto [status, output, errors] = run(arguments);
    SCOPED_TRACE(qPrintable(arguments.join(u' ') + QLatin1String(": ") + errors));
    EXPECT_EQ(status, 2);
    EXPECT_EQ(output, QString());
    EXPECT_EQ(errors.count(u'\n'), 1);
    EXPECT_TRUE(errors.startsWith(QLatin1String("zvupdate")) && errors.contains(named));
}

bool Tool::waitForOutput(const QString &text)
{
    do {
        readOutput();
        if (output_.contains(text.toUtf8()))
            return true;
    } while (process_.waitForReadyRead());
    return false;
}

Tool::End Tool::end()
{
    const bool isOver = process_.state() == QProcess::NotRunning || process_.waitForFinished();
    End end;
    if (isOver && process_.exitStatus() == QProcess::NormalExit)
        end.status = process_.exitCode();
    readOutput();
    end.output = QString::fromUtf8(output_);
    end.errors = QString::fromUtf8(process_.readAllStandardError());
    return end;
}

void Tool::send(int signal) const
{
    ::kill(static_cast<pid_t>(process_.processId()), signal);
}

bool Tool::catches(int signal) const
{
    const QByteArray status = readFile(QStringLiteral("/proc/%1/status").arg(process_.processId()));
    return status.mid(status.indexOf("SigCgt:\t") + 8, 16).toULongLong(nullptr, 16) >>
               (signal - 1) &
           1;
}

QList<QJsonObject> eventsIn(const QString &text)
{
    QList<QJsonObject> events;
    const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8());
        EXPECT_TRUE(document.isObject()) << qPrintable(line);
        events.append(document.object());
    }
    return events;
}
