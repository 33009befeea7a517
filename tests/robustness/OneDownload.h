#pragma once

#include "../../platform/Error.h"
#include "../../transport/HttpFunctionPost.h"
#include "../support/DownloadModes.h"
#include "../support/WaitFor.h"

#include <gtest/gtest.h>

#include <string>

/// The error that a session passes on, by its number alone.
inline std::string network(ZVPlatform::NetworkError what)
{
    return "network " + std::to_string(static_cast<int>(what));
}

/// One download from its start to its end, and the report of it: "file", or the error.
class OneDownload : public HttpFunctionPostDelegate
{
public:
    OneDownload(const QString &baseUrl, const QString &path, DownloadMode mode)
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
        const bool isNetwork = error.domain == QLatin1String(ZVPlatform::networkErrorDomain);
        report_ += (isNetwork ? "network " : "HTTP ") + std::to_string(error.code);
    }

    const DownloadMode mode_;
    const QString path_;
    bool isOver_ = false;
    std::string report_; // The transfer's thread, until the transport says that it is over.
    const std::shared_ptr<HttpFunctionPost> transport_ = HttpFunctionPost::getPost({}, nullptr);
};
