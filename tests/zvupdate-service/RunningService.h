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
        long status = 0; ///< 0 when the reply did not come to its end.
        bool timedOut = false;
        /// Names in lower case.
        QMap<QByteArray, QByteArray> headers;
        QByteArray body;
    };

    /// How long an exchange may take unless told otherwise, in milliseconds.
    static constexpr long kPatience = 60'000;

    RunningService();
    ~RunningService();

    QString served(const QString &name) const;
    QString overrideFile() const;
    static void write(const QString &path, const QByteArray &contents);
    static QByteArray read(const QString &path);

    /// Starts the program on served() with a free port; false when it ends instead.
    bool start(const QStringList &options = {});
    /// Runs the program with just these arguments to its end.
    void runToEnd(const QStringList &arguments);
    /// SIGTERM; returns the exit status.
    int stop();
    int exitCode() const { return process_.exitCode(); }
    QByteArray baseUrl() const { return baseUrl_; }
    QByteArray standardError();

    /// One exchange; command is sealed and appended to the base URL.
    Response request(const QByteArray &method, const QString &command, const QByteArray &range = {},
                     long patience = kPatience) const;
    /// One exchange with url as it is.
    static Response requestUrl(const QByteArray &method, const QByteArray &url,
                               const QByteArray &range = {}, long patience = kPatience);

    /// A fresh token.
    QString token() const;
    /// The command that asks for a file with a fresh token.
    QString download(const QString &fileName) const;

private:
    QTemporaryDir root_;
    QProcess process_;
    QByteArray baseUrl_;
    QByteArray log_;
};
