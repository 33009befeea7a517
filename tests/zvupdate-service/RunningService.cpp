#include "RunningService.h"

#include "support/Loopback.h"

#include <ZVUpdate/service/BaseResponse.h>
#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <QDir>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

RunningService::RunningService()
{
    QDir(root_.path()).mkpath(QStringLiteral("served/files"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), root_.path());
    process_.setProcessEnvironment(environment);
    process_.setProgram(QStringLiteral(ZVUPDATE_SERVICE_PROGRAM));
}

RunningService::~RunningService()
{
    process_.kill();
    process_.waitForFinished();
}

bool RunningService::start(const QStringList &options)
{
    process_.setArguments(QStringList{QStringLiteral("--directory"), served({})} + options);
    process_.start(QIODevice::ReadOnly);
    while (!process_.canReadLine()) {
        if (!process_.waitForReadyRead())
            return false;
    }
    baseUrl_ = process_.readLine().trimmed();
    return true;
}

int RunningService::stop()
{
    process_.terminate();
    return process_.waitForFinished() && process_.exitStatus() == QProcess::NormalExit
               ? process_.exitCode()
               : -1;
}

RunningService::Response RunningService::request(const QByteArray &method, const QString &command,
                                                 const QByteArray &range, int patienceSeconds) const
{
    return requestRaw(method, path + HttpFunctionURLEncode::encode(command).toLatin1(), range,
                      patienceSeconds);
}

RunningService::Response RunningService::requestRaw(const QByteArray &method,
                                                    const QByteArray &target,
                                                    const QByteArray &range,
                                                    int patienceSeconds) const
{
    const int socket = Loopback::connect(port());
    const timeval patience = {.tv_sec = patienceSeconds, .tv_usec = 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Loopback::sendAll(socket, method + ' ' + target +
                                  " HTTP/1.1\r\nHost: here\r\nConnection: close\r\n" +
                                  (range.isEmpty() ? "" : "Range: " + range + "\r\n") + "\r\n");
    Response response;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = recv(socket, buffer, sizeof buffer, 0)) > 0)
        response.body.append(buffer, count);
    response.timedOut = count < 0 && errno == EAGAIN;
    close(socket);

    const qsizetype end = response.body.indexOf("\r\n\r\n");
    const QList<QByteArray> lines = response.body.first(qMax<qsizetype>(end, 0)).split('\n');
    for (const QByteArray &line : lines.mid(1))
        response.headers.insert(line.left(line.indexOf(':')).toLower(),
                                line.mid(line.indexOf(':') + 1).trimmed());
    response.body.remove(0, end + 4);
    const qsizetype length = response.headers.value("content-length").toLongLong();
    if (method == "HEAD" ? response.body.isEmpty() : response.body.size() == length)
        response.status = lines.first().mid(9, 3).toInt();
    return response;
}

QString RunningService::download(const QString &fileName) const
{
    const QByteArray reply = request("POST", QStringLiteral("cmd=gettoken")).body;
    return QStringLiteral("cmd=download&tk=%1&fn=%2")
        .arg(BaseResponse(QString::fromUtf8(reply)).ID().value_or(QString()), fileName);
}
