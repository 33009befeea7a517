#include "platform/Export.h"
#include "platform/Mutex.h"
#include "platform/files/Files.h"
#include "support/DownloadModes.h"
#include "support/Exchanges.h"
#include "support/ScriptedServer.h"
#include "support/Testing.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/statvfs.h>

using namespace ZVPlatform;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using Reply = ScriptedServer::Reply;

namespace {

std::atomic<int> threadsToBeMade = -1; // Before there are no more; -1 for no such limit.
std::atomic<int64_t> roomOnDisk = -1;  // -1 for what there is.
std::atomic<int> writeError = 0;       // Why nothing can be written; 0 for no such trouble.

// The system's function; or a sanitizer's, which has to see what goes through it.
template <class Function>
Function *original(const std::string &name)
{
    void *const watched = dlsym(RTLD_DEFAULT, ("__interceptor_" + name).c_str());
    return reinterpret_cast<Function *>(watched ? watched : dlsym(RTLD_NEXT, name.c_str()));
}

} // namespace

// In the place of the system's, to have them fail.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): theirs are reserved names.

extern "C" ZVUPDATE_EXPORT int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                                              void *(*body)(void *), void *argument)
{
    if (threadsToBeMade == 0)
        return EAGAIN;
    if (threadsToBeMade > 0)
        --threadsToBeMade;
    return original<decltype(pthread_create)>("pthread_create")(thread, attributes, body, argument);
}

extern "C" ZVUPDATE_EXPORT int statvfs(const char *path, struct statvfs *status)
{
    const int result = original<int(const char *, struct statvfs *)>("statvfs")(path, status);
    if (roomOnDisk >= 0) {
        const quint64 used = Files::size(QString::fromUtf8(path) + QStringLiteral("/P1_2103.bin"));
        status->f_frsize = 1;
        status->f_bavail = static_cast<fsblkcnt_t>(roomOnDisk) - used;
    }
    return result;
}

extern "C" ZVUPDATE_EXPORT ssize_t pwrite(int file, const void *bytes, size_t size, off_t offset)
{
    if (writeError == 0)
        return original<decltype(pwrite)>("pwrite")(file, bytes, size, offset);
    errno = writeError;
    return -1;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

const QString downloadCommand = QStringLiteral("cmd=download&tk=T1&fn=P1_2103.exe");

/// Passes on what it hears: "file PATH", or the error's name.
class Delegate : public HttpFunctionPostDelegate
{
public:
    explicit Delegate(std::function<void(const std::string &)> report) : report_(std::move(report))
    {
    }
    ~Delegate() override { retire(); }

    void downloadFinishWithFilePath(const QString &path) override
    {
        report_("file " + path.toStdString());
    }
    void downloadFinishWithError(const Error &error) override { report_(nameOf(error)); }

private:
    const std::function<void(const std::string &)> report_;
};

/// One transport at a time, with its delegate and its local file. A session needs no event loop and
/// is not given one.
class Download : public testing::Test, public InBothModes
{
protected:
    // No thread outlasts its download.
    void TearDown() override
    {
        transport_.reset();
        EXPECT_TRUE(wait([] { return libraryThreads() == 0; }));
    }

    void start(const ScriptedServer &server, const std::optional<QByteArray> &before = {})
    {
        QFile::remove(path_);
        if (before)
            writeFile(path_, *before);
        {
            const MutexLock lock(mutex_);
            outcomes_.clear();
        }
        transport_ = HttpFunctionPost::getPost(server.baseUrl(), nullptr);
        EXPECT_EQ(transport_->threadStop(), 0) << "There is nothing to stop yet.";
        EXPECT_FALSE(transport_->isThreadStop());
        delegate_ = std::make_unique<Delegate>(
            [this, observed = std::weak_ptr(transport_)](const std::string &outcome) {
                const auto transport = observed.lock();
                EXPECT_FALSE(transport && transport->isThreadStop()) << "The end shows afterwards.";
                EXPECT_EQ(std::this_thread::get_id() == mainThread_, !isSession_);
                const MutexLock lock(mutex_);
                outcomes_.push_back(outcome);
            });
        transport_->setDelegate(delegate_.get());
        EXPECT_EQ(transport_->DoDownloadAsync(downloadCommand, path_), 1);
    }

    bool wait(const std::function<bool()> &condition) const
    {
        return waitFor(condition, meanwhile_);
    }
    /// The transport's own, which is the same in both modes.
    std::string failure() const
    {
        const auto error = transport_->failure();
        return error ? nameOf(*error) : "";
    }
    bool waitForSize(quint64 size) const
    {
        return wait([&] { return Files::size(path_) == size; });
    }
    bool waitForEnd() const
    {
        return wait([this] { return transport_->isThreadStop(); });
    }
    // Lets go of the transport and waits until the download has, too: then nothing more can come.
    bool waitForLastOwner()
    {
        const std::weak_ptr<HttpFunctionPost> transport = transport_;
        transport_.reset();
        return wait([&] { return transport.expired(); });
    }

    std::vector<std::string> outcomes() const
    {
        const MutexLock lock(mutex_);
        return outcomes_;
    }

    const bool isSession_ = GetParam() == DownloadMode::Session;
    const Meanwhile meanwhile_ = isSession_ ? Meanwhile::Sleep : Meanwhile::RunEventLoop;
    const QTemporaryDir directory_;
    const QString path_ = directory_.filePath(QStringLiteral("P1_2103.bin"));
    const std::string success_ = "file " + path_.toStdString();
    const std::thread::id mainThread_ = std::this_thread::get_id();
    mutable Mutex mutex_;
    std::vector<std::string> outcomes_ ZVUPDATE_GUARDED_BY(mutex_);
    std::unique_ptr<Delegate> delegate_;
    std::shared_ptr<HttpFunctionPost> transport_;
};

INSTANTIATE_TEST_SUITE_P(, Download, bothModes, testing::PrintToStringParamName());

const QByteArray end = "\r\n\r\n";
const QByteArray half = "\r\nContent-Length: 20" + end + "0123456789";

} // namespace

TEST_P(Download, FetchesWhatIsMissingOnceAndReportsOnce)
{
    const QByteArray content = QByteArrayLiteral("0123456789abcdef!").repeated(100'000);
    ScriptedServer server([&](const ScriptedServer::Request &request) {
        return request.target == "/moved" ? Reply::file(request, content)
                                          : Reply::whole(302, "here", {"Location: /moved"});
    });
    QByteArrayList header = {"Host: " + server.url().toUtf8().mid(7), "Accept: */*",
                             "User-Agent: Mozilla/5.0 (Windows NT 6.3; WOW64; rv:36.0) "
                             "Gecko/20100101 Firefox/36.0",
                             "Connection: Keep-Alive"};
    for (const qsizetype before : {0, 1'048'576}) {
        SCOPED_TRACE(before);
        start(server, content.left(before));
        EXPECT_EQ(transport_->DoDownloadAsync(downloadCommand, path_ + u'2'), 1)
            << "It changes nothing.";
        ASSERT_TRUE(waitForEnd());
        EXPECT_TRUE(readFile(path_) == content);
        EXPECT_EQ(transport_->mCancelDownloadTempFile(), path_);
        EXPECT_FALSE(transport_->mlocalFile() || transport_->mParamStr()) << "Nothing writes them.";
        EXPECT_EQ(transport_->mThreadEnded(), 1);
        EXPECT_EQ(transport_->downloadedBytes(), static_cast<uint64_t>(content.size()));
        EXPECT_EQ(transport_->expectedBytes(), content.size());
        ASSERT_TRUE(waitForLastOwner());
        EXPECT_THAT(outcomes(), ElementsAre(success_));
        EXPECT_FALSE(Files::exists(path_ + u'2'));
        if (before > 0)
            header.insert(2, "Range: bytes=1048576-");
        ASSERT_EQ(server.requests().size(), before > 0 ? 4u : 2u) << "A redirect is followed.";
        const ScriptedServer::Request last = server.requests().back();
        EXPECT_EQ(last.method, "GET");
        EXPECT_EQ(last.headerLines, header);
        EXPECT_EQ(server.requests().at(before > 0 ? 2 : 0).command(), downloadCommand);
    }
}

TEST_P(Download, AsksAlsoWithoutParameters)
{
    ScriptedServer server(Reply::whole(200, "content"));
    transport_ = HttpFunctionPost::getPost(QString(), nullptr);
    transport_->setMUrl(server.baseUrl());
    transport_->setMlocalFile(downloadCommand);
    transport_->setMParamStr(path_);
    transport_->DoDownloadAsync(QString(), path_);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(transport_->mlocalFile(), downloadCommand) << "Nothing reads it";
    EXPECT_EQ(transport_->mParamStr(), path_) << "nor this.";
    EXPECT_EQ(server.requests().at(0).target, "/Update/ZVDLCtl.dll?dt=");
    EXPECT_EQ(readFile(path_), "content");
}

// In front of the download queue, and of what carries the transfer.
TEST_P(Download, FailsLikeAnyOtherWithoutAThread)
{
    ScriptedServer server(Reply::whole(200, "content"));
    for (const int made : {0, 1}) {
        SCOPED_TRACE(made);
        std::vector<std::string> heard;
        Delegate delegate([&](const std::string &outcome) { heard.push_back(outcome); });
        transport_ = HttpFunctionPost::getPost(server.baseUrl(), &delegate);
        threadsToBeMade = made;
        EXPECT_EQ(transport_->DoDownloadAsync(downloadCommand, path_), 1);
        const bool hasEnded = waitForEnd();
        threadsToBeMade = -1;
        ASSERT_TRUE(hasEnded);
        EXPECT_EQ(transport_->mCancelDownloadTempFile(), path_);
        EXPECT_THAT(heard, ElementsAre("HTTP Error 0"));
    }
    EXPECT_TRUE(server.requests().empty());
}

TEST_P(Download, NeedsNeitherADelegateNorAnOwner)
{
    const auto gate = std::make_shared<Gate>();
    ScriptedServer server(Reply().send("HTTP/1.1 200 OK" + half).wait(gate).send("abcdefghij"));
    start(server);
    EXPECT_NE(transport_->mDownloadQueue(), nullptr);
    ASSERT_TRUE(waitForSize(10));
    EXPECT_EQ(transport_->currentSession() != nullptr, isSession_);
    EXPECT_EQ(transport_->currentDownloadTask() != nullptr, isSession_);
    EXPECT_EQ(transport_->currentConnection() != nullptr, !isSession_);
    EXPECT_GT(libraryThreads(), 0);
    delegate_.reset();
    EXPECT_EQ(transport_->delegate(), nullptr);
    EXPECT_FALSE(transport_->isThreadStop());
    gate->open();
    ASSERT_TRUE(waitForLastOwner());

    EXPECT_EQ(readFile(path_), "0123456789abcdefghij");
    EXPECT_THAT(outcomes(), IsEmpty());
}

// Until the event loop runs, a connection is neither there nor to be stopped, and nothing comes of
// what it has received. A session needs none.
TEST_P(Download, NeedsTheEventLoopForAConnectionOnly)
{
    const auto gate = std::make_shared<Gate>();
    const auto last = std::make_shared<Gate>();
    ScriptedServer server(
        Reply().send("HTTP/1.1 200 OK" + half).wait(gate).send("abcdefghij").wait(last));
    start(server);
    if (!isSession_) {
        ASSERT_TRUE(waitFor([this] { return transport_->mOpen() == 1; }, Meanwhile::Sleep));
        EXPECT_EQ(transport_->threadStop(), 0);
        EXPECT_TRUE(server.requests().empty());
    }
    ASSERT_TRUE(waitForSize(10));
    gate->open();
    ASSERT_TRUE(waitFor([&] { return last->isReached(); }, Meanwhile::Sleep));
    EXPECT_TRUE(isSession_ ? waitForSize(20) : Files::size(path_) == 10);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(transport_->mThreadEndFlag(), 0);
    EXPECT_THAT(outcomes(), ElementsAre(success_));
    EXPECT_EQ(readFile(path_), "0123456789abcdefghij");
}

namespace {

/// How a download ends that is left alone: what the file holds before, what the server does, what
/// the file holds afterwards, and what the delegate hears in session mode ("file" for success) and,
/// if that is something else, in connection mode.
struct Ending
{
    const char *name;
    std::optional<QByteArray> before;
    Reply reply;
    std::optional<QByteArray> after;
    std::string session;
    std::string connection = session;
};

Reply raw(const QByteArray &reply)
{
    return Reply().send("HTTP/1.1 " + reply);
}

Reply broken(const QByteArray &reply)
{
    return raw(reply).close();
}

Reply redirect(const QByteArray &location)
{
    return Reply::whole(302, "page", {"Location: " + location});
}

const std::string gone = network(NetworkError::ConnectionLost);
const std::string tooLarge = network(NetworkError::ReplyTooLarge);
const QByteArray chunked = "200 OK\r\nTransfer-Encoding: chunked" + end;
const QByteArray muchFrame(600'000, 'x');

const Ending endings[] = {
    {"new file", {}, Reply::whole(200, "new"), "new", "file"},
    {"empty file", "", Reply::whole(200, "new"), "new", "file"},
    {"resumed file", "old+", Reply::whole(206, "new"), "old+new", "file"},
    {"Range ignored", "old+", Reply::whole(200, "old+new"), "old+old+new", "file"},
    {"no content", {}, raw("204 None" + end), {}, "file"},
    {"nothing missing", "old", Reply::whole(206), "old", "file"},
    {"after an interim reply", "", raw("102 Wait" + end).send("HTTP/1.1 204 None" + end), "",
     "file"},
    {"the last success", {}, Reply::whole(299, "new"), "new", "file"},
    {"the first that is none", "old", Reply::whole(300, "page"), "old", "HTTP Error 300"},
    {"server error", {}, Reply::whole(500, "page"), {}, "HTTP Error 500"},
    {"complete already", "old", Reply::whole(416, "page"), "old", "HTTP Error 416"},
    {"not modified", "old", raw("304 Same" + end), "old", "HTTP Error 304"},
    {"broken at once", {}, broken("200 OK\r\nContent-Length: 9" + end), {}, gone, "HTTP Error 200"},
    {"broken again", "old", broken("206 Part" + half), "old0123456789", gone, "HTTP Error 206"},
    {"broken error", "old", broken("503 Busy" + half), "old", "HTTP Error 503"},
    {"endless frame", {}, raw(chunked + "1;" + muchFrame), {}, tooLarge, "HTTP Error 200"},
    {"no reply", "old", Reply().close(), "old", "HTTP Error 0"},
    {"only an interim reply", {}, broken("102 Wait" + end), {}, "HTTP Error 0"},
    {"redirect loop", {}, redirect("/again"), {}, "HTTP Error 302"},
    {"redirect to a file", {}, redirect("file:///etc/hostname"), {}, "HTTP Error 302"},
    {"redirect to ftp", {}, redirect("ftp://127.0.0.1/f"), {}, "HTTP Error 302"},
    {"redirect to nobody", {}, redirect("http://127.0.0.1:1/"), {}, "HTTP Error 0"},
};

} // namespace

TEST_P(Download, EndsByTheTable)
{
    for (const Ending &ending : endings) {
        SCOPED_TRACE(ending.name);
        ScriptedServer server(ending.reply);
        start(server, ending.before);
        ASSERT_TRUE(waitForEnd());

        const std::string expected = isSession_ ? ending.session : ending.connection;
        EXPECT_THAT(outcomes(), ElementsAre(expected == "file" ? success_ : expected));
        const std::string known = ending.session == "HTTP Error 0" ? failure() : ending.session;
        EXPECT_EQ(failure(), ending.session == "file" ? "" : known);
        EXPECT_EQ(Files::exists(path_), ending.after.has_value());
        EXPECT_EQ(readFile(path_), ending.after.value_or(QByteArray()));
        ASSERT_FALSE(server.requests().empty());
        EXPECT_EQ(server.requests()[0].header("Range").isNull(),
                  ending.before.value_or(QByteArray()).isEmpty());
    }
}

namespace {

/// Where a download is when the server falls silent: the bytes of the reply that have arrived,
/// those of the file among them, and what a session's delegate hears when the download is stopped
/// then.
struct Silence
{
    const char *name;
    QByteArray reply;
    quint64 received;
    std::string stopped;
};

const std::string cancelled = network(NetworkError::Cancelled);

const Silence silences[] = {
    {"before the reply", "", 0, "HTTP Error 0"},
    {"in the header", "HTTP/1.1 206 Part\r\nConte", 0, "HTTP Error 0"},
    {"after the header", "HTTP/1.1 206 Part\r\nTransfer-Encoding: chunked" + end, 0, cancelled},
    {"in the body", "HTTP/1.1 206 Part" + half, 10, cancelled},
};

} // namespace

// The time-out is a minute; to wait for less shows that a stop does not wait for it. A redirect
// that was followed is no reply.
TEST_P(Download, IsEndedByAStopAtOnceInEverySilence)
{
    for (const Silence &silence : silences) {
        SCOPED_TRACE(silence.name);
        const auto gate = std::make_shared<Gate>();
        ScriptedServer server([&](const ScriptedServer::Request &request) {
            return request.target == "/moved" ? Reply().send(silence.reply).wait(gate)
                                              : Reply::whole(302, "here", {"Location: /moved"});
        });
        start(server);
        ASSERT_TRUE(wait([&] { return gate->isReached(); }) && waitForSize(silence.received));
        EXPECT_FALSE(transport_->isThreadStop());
        EXPECT_EQ(transport_->threadStop(), 0);
        EXPECT_EQ(transport_->mThreadEndFlag(), 1);
        EXPECT_TRUE(isSession_ || transport_->isThreadStop()) << "On return.";
        ASSERT_TRUE(waitForEnd());
        EXPECT_EQ(failure(), cancelled);
        EXPECT_NE(transport_->lastResponse().status, 302);
        ASSERT_TRUE(waitForLastOwner());
        EXPECT_EQ(outcomes().size(), isSession_ ? 1u : 0u);
        EXPECT_THAT(outcomes(), Each(silence.stopped));
        EXPECT_EQ(Files::size(path_), silence.received);
    }
}

// Of what has no length, or one that does not fit, so much is taken that 64 MiB are left.
TEST_P(Download, LeavesRoomOnTheDisk)
{
    constexpr int64_t leave = 64 << 20;
    const QByteArray content(1'000'000, 'x');
    const auto whole = Reply::whole(200, content);
    const auto endless = raw("200 OK" + end).send(content).wait(std::make_shared<Gate>());
    const struct
    {
        Reply reply;
        int64_t room = 0;
        bool isFetched = false;
    } rows[] = {
        {whole, 1'000'000, true},
        {whole, 999'999, false},
        {broken("200 OK" + end + content), leave + 1'000'000, true},
        {endless, leave, false},
        {endless, leave + 500'000, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        ScriptedServer server(row.reply);
        roomOnDisk = row.room;
        start(server);
        const bool hasEnded = waitForEnd();
        roomOnDisk = -1;
        ASSERT_TRUE(hasEnded);
        EXPECT_EQ(failure(), row.isFetched ? "" : "File Error 3");
        ASSERT_TRUE(waitForLastOwner());
        EXPECT_EQ(outcomes().size(), row.isFetched || isSession_ ? 1u : 0u);
        EXPECT_THAT(outcomes(), Each(row.isFetched ? success_ : "File Error 3"));
        const auto size = static_cast<int64_t>(Files::size(path_));
        EXPECT_LE(size, row.isFetched ? content.size() : std::max<int64_t>(row.room - leave, 0));
        EXPECT_TRUE(size > 0 || row.room <= leave) << "What there is room for is taken.";
        EXPECT_TRUE(content.startsWith(readFile(path_)));
    }
}

TEST_P(Download, GoesOnWhenNothingCanBeWrittenAndKnowsWhy)
{
    ScriptedServer server(Reply::whole(200, "content"));
    for (const auto &[error, reason] : {std::pair(ENOSPC, "File Error 3"), {EIO, "File Error 4"}}) {
        writeError = error;
        start(server);
        const bool hasEnded = waitForEnd();
        writeError = 0;
        ASSERT_TRUE(hasEnded);
        EXPECT_THAT(outcomes(), ElementsAre(success_));
        EXPECT_EQ(failure(), reason);
    }
}
