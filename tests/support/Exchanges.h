#pragma once

#include "../../platform/Error.h"
#include "../../service/UpdateLogicFunc.h"
#include "../../transport/HttpFunctionPost.h"
#include "DownloadModes.h"

#include <gtest/gtest.h>

#include <string>

/// The answer to a command.
inline std::optional<QString> post(const QString &baseUrl)
{
    return HttpFunctionPost::getPost(baseUrl, nullptr)
        ->DoPost(QStringLiteral("cmd=gettoken"), std::nullopt);
}

/// The answer to a question for a size.
inline uint64_t probe(const QString &baseUrl)
{
    return HttpFunctionPost::getPost(baseUrl, nullptr)->getFileSize(QStringLiteral("cmd=gettoken"));
}

/// An error by its domain and its number, such as "HTTP Error 404".
inline std::string nameOf(const ZVPlatform::Error &error)
{
    return error.domain.toStdString() + ' ' + std::to_string(error.code);
}

inline std::string network(ZVPlatform::NetworkError what)
{
    return nameOf({QLatin1String(ZVPlatform::networkErrorDomain), static_cast<int>(what), {}});
}

/// How a download ends: "file", or the outcome's word, with the HTTP status if that is in the way.
inline std::string download(const QString &baseUrl, const QString &path,
                            DownloadMode mode = DownloadMode::Session)
{
    const DownloadModeSwitch chosen(mode);
    UpdateLogicFunc client;
    client.setMBaseURL(baseUrl);
    client.doStartDownload(QStringLiteral("T1"), QStringLiteral("P1_2103.exe"), path);
    client.waitOne();
    EXPECT_TRUE(client.doCheckDownloadStop()) << "A download hangs.";
    const auto failure = client.lastFailure();
    if (!failure)
        return "file";
    const std::string word = UpdateOutcome::word(failure->kind).toStdString();
    return failure->httpStatus == 0 ? word : word + ' ' + std::to_string(failure->httpStatus);
}
