#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QUrl>

/// The program, run on a folder of releases of its own and with a home directory of its own, and
/// what a client needs to talk to it.
class RunningService
{
public:
    struct Response
    {
        /// 0 when the reply did not come to its end.
        int status = 0;
        /// It stood still for the client's patience.
        bool timedOut = false;
        /// Names in lower case.
        QMap<QByteArray, QByteArray> headers = {};
        QByteArray body = {};
    };

    RunningService();
    ~RunningService();

    QString served(const QString &name) const { return served_ + name; }
    QString overrideFile() const { return override_; }

    /// Starts the program on served() with a free port; false when it ends instead.
    bool start(const QStringList &options = {});
    /// SIGTERM; returns the exit status.
    int stop();
    int exitCode() const { return process_.exitCode(); }
    QByteArray baseUrl() const { return baseUrl_; }
    quint16 port() const { return quint16(QUrl(QString::fromLatin1(baseUrl_)).port()); }
    QByteArray standardError() { return log_ += process_.readAllStandardError(); }

    /// One exchange; command is sealed and appended to the base URL.
    Response request(const QByteArray &method, const QString &command, const QByteArray &range = {},
                     int patienceSeconds = 60) const;
    /// One exchange for a path with its query as they are.
    Response requestRaw(const QByteArray &method, const QByteArray &target,
                        const QByteArray &range = {}, int patienceSeconds = 60) const;

    /// The command that asks for a file with a fresh token.
    QString download(const QString &fileName) const;

    /// The path of commands, and the start of the query.
    static constexpr char path[] = "/Update/ZVDLCtl.dll?dt=";

private:
    const QTemporaryDir root_;
    const QString served_ = root_.filePath(QStringLiteral("served/"));
    const QString override_ = root_.filePath(QStringLiteral("Documents/ConsoleZVUpdate.mac"));
    QProcess process_;
    QByteArray baseUrl_;
    QByteArray log_;
};
