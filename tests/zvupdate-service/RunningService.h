#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

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

    QString served(const QString &name) const;
    QString overrideFile() const;

    /// Starts the program on served() with a free port; false when it ends instead.
    bool start(const QStringList &options = {});
    /// SIGTERM; returns the exit status.
    int stop();
    int exitCode() const { return process_.exitCode(); }
    QByteArray baseUrl() const { return baseUrl_; }
    quint16 port() const;
    QByteArray standardError();

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
    QTemporaryDir root_;
    QProcess process_;
    QByteArray baseUrl_;
    QByteArray log_;
};
