#include "RunningService.h"

#include <ZVUpdate/service/BaseResponse.h>
#include <ZVUpdate/service/HttpFunctionURLEncode.h>

#include <QDir>
#include <QFile>

#include <curl/curl.h>

#include <memory>

namespace {

// What libcurl hands over is counted in items of one byte.

size_t onBody(char *data, size_t, size_t count, void *body)
{
    static_cast<QByteArray *>(body)->append(data, static_cast<qsizetype>(count));
    return count;
}

size_t onHeader(char *data, size_t, size_t count, void *response)
{
    const QByteArray line(data, static_cast<qsizetype>(count));
    if (const qsizetype colon = line.indexOf(':'); colon > 0)
        static_cast<RunningService::Response *>(response)->headers.insert(
            line.first(colon).toLower(), line.sliced(colon + 1).trimmed());
    return count;
}

} // namespace

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

QString RunningService::served(const QString &name) const
{
    return root_.filePath(QStringLiteral("served/") + name);
}

QString RunningService::overrideFile() const
{
    return root_.filePath(QStringLiteral("Documents/ConsoleZVUpdate.mac"));
}

void RunningService::write(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

QByteArray RunningService::read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

void RunningService::runToEnd(const QStringList &arguments)
{
    process_.setArguments(arguments);
    process_.start(QIODevice::ReadOnly);
    process_.waitForFinished();
}

int RunningService::stop()
{
    process_.terminate();
    return process_.waitForFinished() && process_.exitStatus() == QProcess::NormalExit
               ? process_.exitCode()
               : -1;
}

QByteArray RunningService::standardError()
{
    return log_ += process_.readAllStandardError();
}

RunningService::Response RunningService::request(const QByteArray &method, const QString &command,
                                                 const QByteArray &range, long patience) const
{
    return requestUrl(method, baseUrl_ + HttpFunctionURLEncode::encode(command).toLatin1(), range,
                      patience);
}

RunningService::Response RunningService::requestUrl(const QByteArray &method, const QByteArray &url,
                                                    const QByteArray &range, long patience)
{
    Response response;
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(),
                                                                   &curl_easy_cleanup);
    curl_slist *fields = nullptr;
    if (!range.isEmpty())
        fields = curl_slist_append(fields, ("Range: " + range).constData());
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.constData());
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, patience);
    if (method == "HEAD")
        curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    if (method == "POST")
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, "");
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method.constData());
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, fields);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &response);
    const CURLcode end = curl_easy_perform(curl.get());
    response.timedOut = end == CURLE_OPERATION_TIMEDOUT;
    if (end == CURLE_OK)
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &response.status);
    curl_slist_free_all(fields);
    return response;
}

QString RunningService::token() const
{
    const QByteArray reply = request("POST", QStringLiteral("cmd=gettoken")).body;
    return BaseResponse(QString::fromUtf8(reply)).ID().value_or(QString());
}

QString RunningService::download(const QString &fileName) const
{
    return QStringLiteral("cmd=download&tk=") + token() + QStringLiteral("&fn=") + fileName;
}
