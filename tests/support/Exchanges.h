#pragma once

#include "../../platform/Error.h"
#include "../../transport/HttpFunctionPost.h"
#include "DownloadModes.h"
#include "WaitFor.h"

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

/// One download from its start to its end, and the report of it: "file", or the error's name.
class OneDownload : public HttpFunctionPostDelegate
{
public:
    OneDownload(const QString &baseUrl, const QString &path,
                DownloadMode mode = DownloadMode::Session)
        : mode_(mode), path_(path)
    {
        const DownloadModeSwitch chosen(mode);
        transport_->setMUrl(baseUrl);
        transport_->setDelegate(this);
        transport_->DoDownloadAsync(QStringLiteral("cmd=download&tk=T1&fn=P1_2103.exe"), path);
    }
    ~OneDownload() override
    {
        EXPECT_TRUE(isOver_) << "A download hangs.";
        retire();
    }

    std::string report()
    {
        isOver_ =
            waitFor([this] { return transport_->isThreadStop(); },
                    mode_ == DownloadMode::Session ? Meanwhile::Sleep : Meanwhile::RunEventLoop);
        EXPECT_GE(transport_->expectedBytes(), -1);
        return report_;
    }

private:
    void downloadFinishWithFilePath(const QString &path) override
    {
        report_ += path == path_ ? "file" : "another file";
    }
    void downloadFinishWithError(const ZVPlatform::Error &error) override
    {
        report_ += nameOf(error);
    }

    const DownloadMode mode_;
    const QString path_;
    bool isOver_ = false;
    std::string report_; // The transfer's thread, until the transport says that it is over.
    const std::shared_ptr<HttpFunctionPost> transport_ = HttpFunctionPost::getPost({}, nullptr);
};
