#pragma once

#include "../platform/http/HttpReply.h"
#include "../platform/threads/DelegateAnchor.h"
#include "../platform/threads/Guarded.h"
#include "HttpFunctionPostDelegate.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace ZVPlatform {
class HttpTransfer;
class PartialFile;
class SerialQueue;
} // namespace ZVPlatform

/// The HTTP client: the posted command, the size probe and the resumable background download. Every
/// exchange seals its plain parameter text and appends it to the base URL.
///
/// Owned by std::shared_ptr; a running download owns the transport, too. The delegate is not owned.
/// The accessors may be called from any thread, the operations from one thread at a time.
class HttpFunctionPost : public std::enable_shared_from_this<HttpFunctionPost>
{
public:
    /// A new transport for a base URL, which ends in the query key that takes the sealed text. Only
    /// a download needs a delegate.
    static std::shared_ptr<HttpFunctionPost> getPost(const QString &url,
                                                     HttpFunctionPostDelegate *delegate);

    HttpFunctionPost(const QString &url, HttpFunctionPostDelegate *delegate);
    ~HttpFunctionPost();

    HttpFunctionPost(const HttpFunctionPost &) = delete;
    HttpFunctionPost &operator=(const HttpFunctionPost &) = delete;

    /// Posts a command and returns the text of the reply, whatever its HTTP status. Blocks the
    /// calling thread without running its event loop. Absent when no whole reply came (which is
    /// logged) or it is not UTF-8; empty when the reply is, or when params is, in which case
    /// nothing is sent. The second argument is ignored: commands have no body.
    std::optional<QString> DoPost(const QString &params, const std::optional<QByteArray> &data);

    /// Asks how many bytes a download of these parameters would bring, with a HEAD request that
    /// blocks the calling thread. 0 when no reply came; all ones (the unsigned form of -1) when the
    /// reply announces no length. The HTTP status is not looked at.
    uint64_t getFileSize(const QString &params);

    /// Starts a download into a local file in the background and returns 1 at once. What the file
    /// holds already is not fetched again: the missing bytes are asked for and appended. The file
    /// is never truncated or renamed, and removed only when a reply would make it too long. A
    /// transport downloads once; a further call does nothing.
    int64_t DoDownloadAsync(const QString &params, const QString &localFilePath);

    /// The step that the download queue runs.
    void DownloadFile(const QString &url, const QString &localFilePath);

    /// Stops a running transfer at once and returns 0. In session mode the delegate hears of it,
    /// and isThreadStop() turns true after that; in connection mode the delegate hears nothing, and
    /// isThreadStop() is true on return. A download that has not begun its transfer yet is not
    /// stopped.
    int64_t threadStop();

    /// Ends a command that is running, a download, also before its transfer has begun, and every
    /// later one, as cancelled. Returns at once. Any thread.
    void cancel();

    /// Whether a download ends when a piece cannot be written; otherwise the piece is lost. To be
    /// set before it starts.
    void setStopsWhenUnwritable(bool stops) { stopsWhenUnwritable_ = stops; }

    /// The size in bytes beyond which a download's file is not to grow: a reply that is longer, or
    /// says that it will be, fails, and the file is removed. To be set before it starts.
    void setMostBytes(uint64_t most) { mostBytes_ = most; }

    /// Whether a download was started and is over, its delegate's call included.
    bool isThreadStop() const;

    /// Whether the calling thread is just telling the delegate of a download that was asked to stop
    /// meanwhile, so that what the delegate does with the file is not wanted any more.
    static bool isStopRequestedHere();

    /// From a delegate's call: what the transport that has made it brought is not what it should
    /// be.
    static void failHere(const ZVPlatform::Error &error);

    /// Why the latest command brought no whole reply, or the download no file that is as it should
    /// be: the first reason, an error of HTTP (with the status as its code), of the network or of
    /// the file. Absent while nothing is wrong.
    std::optional<ZVPlatform::Error> failure() const { return failure_.get(); }
    /// How the latest reply began; without a status there is none.
    ZVPlatform::HttpResponse lastResponse() const { return lastResponse_.get(); }

    /// The size in bytes that the local file had when the download began.
    uint64_t resumedAt() const { return resumedAt_; }
    /// The size in bytes that the local file has reached, if it could be written.
    uint64_t downloadedBytes() const { return downloadedBytes_; }
    /// The size in bytes that the local file will have in the end; -1 while that is unknown.
    int64_t expectedBytes() const { return expectedBytes_; }

    QString mUrl() const { return mUrl_.get(); }
    void setMUrl(const QString &url) { mUrl_.set(url); }
    /// The queue on which a download starts; null until then.
    const ZVPlatform::SerialQueue *mDownloadQueue() const { return mDownloadQueue_.get(); }
    /// Kept for callers; no operation reads or writes these two.
    std::optional<QString> mlocalFile() const { return mlocalFile_.get(); }
    void setMlocalFile(const std::optional<QString> &path) { mlocalFile_.set(path); }
    std::optional<QString> mParamStr() const { return mParamStr_.get(); }
    void setMParamStr(const std::optional<QString> &text) { mParamStr_.set(text); }
    /// 1 once a download has been started.
    int64_t mOpen() const { return mOpen_; }
    /// 1 once a stop was requested of a running transfer.
    int64_t mThreadEndFlag() const { return mThreadEndFlag_; }
    /// 1 once the download has ended.
    int64_t mThreadEnded() const { return mThreadEnded_; }
    /// The local file that the download appends to and reports.
    std::optional<QString> mCancelDownloadTempFile() const
    {
        return mCancelDownloadTempFile_.get();
    }
    /// What carries a download: a session and its task, or a connection. Null until it starts.
    std::shared_ptr<ZVPlatform::SerialQueue> currentSession() const
    {
        return currentSession_.get();
    }
    std::shared_ptr<ZVPlatform::HttpTransfer> currentDownloadTask() const
    {
        return currentDownloadTask_.get();
    }
    std::shared_ptr<ZVPlatform::HttpTransfer> currentConnection() const
    {
        return currentConnection_.get();
    }
    HttpFunctionPostDelegate *delegate() const { return delegate_.get().get(); }
    void setDelegate(HttpFunctionPostDelegate *delegate);

private:
    class FileReceiver;

    QString sealedUrl(const QString &sealed) const { return mUrl() + sealed; }
    void fail(const ZVPlatform::Error &error);
    ZVPlatform::Result<void, ZVPlatform::Error> command(ZVPlatform::HttpRequest request,
                                                        ZVPlatform::HttpReply &reply);
    void endWithoutThread(const QString &localFilePath);
    void startSession(const ZVPlatform::HttpRequest &request, ZVPlatform::PartialFile file);
    void startConnection(const ZVPlatform::HttpRequest &request, ZVPlatform::PartialFile file);
    template <class Call>
    void report(Call &&call);

    ZVPlatform::Guarded<QString> mUrl_;
    std::unique_ptr<ZVPlatform::SerialQueue> mDownloadQueue_; // The caller's thread.
    ZVPlatform::Guarded<std::optional<QString>> mlocalFile_;
    ZVPlatform::Guarded<std::optional<QString>> mParamStr_;

    // Each goes from 0 to 1 only. mThreadEnded_ is set last, after the delegate has returned, so
    // that whoever sees it knows that the outcome has been delivered.
    std::atomic<int64_t> mOpen_ = 0;
    std::atomic<int64_t> mThreadEndFlag_ = 0;
    std::atomic<int64_t> mThreadEnded_ = 0;

    std::atomic<bool> usesConnection_ =
        false; // As the host had it when the download was asked for.
    std::atomic<bool> isCancelled_ = false;
    std::atomic<bool> stopsWhenUnwritable_ = false;
    std::atomic<uint64_t> mostBytes_ = std::numeric_limits<uint64_t>::max();
    ZVPlatform::Guarded<std::shared_ptr<ZVPlatform::HttpExchange>> command_; // While it runs.
    std::atomic<uint64_t> resumedAt_ = 0;
    std::atomic<uint64_t> downloadedBytes_ = 0;
    std::atomic<int64_t> expectedBytes_ = -1;

    ZVPlatform::Guarded<std::optional<QString>> mCancelDownloadTempFile_;
    ZVPlatform::Guarded<std::shared_ptr<ZVPlatform::SerialQueue>> currentSession_;
    ZVPlatform::Guarded<std::shared_ptr<ZVPlatform::HttpTransfer>> currentDownloadTask_;
    ZVPlatform::Guarded<ZVPlatform::HttpResponse> lastResponse_;
    ZVPlatform::Guarded<std::optional<ZVPlatform::Error>> failure_;
    ZVPlatform::Guarded<std::shared_ptr<ZVPlatform::HttpTransfer>> currentConnection_;
    ZVPlatform::Guarded<ZVPlatform::DelegateRef<HttpFunctionPostDelegate>> delegate_;
};
