#include "Tool.h"
#include "support/Testing.h"

#include "../controller/UpdateService.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QElapsedTimer>

#include <array>
#include <csignal>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

using Kind = UpdateOutcome::Kind;

QJsonObject resultEvent(UpdateOutcome::Kind kind)
{
    return {{u"event"_s, u"result"_s},
            {u"code"_s, qint64(ZVUpdateProc::resultFor(kind))},
            {u"outcome"_s, UpdateOutcome::word(kind)},
            {u"message"_s, UpdateOutcome(kind).message}};
}

QJsonObject offerEvent()
{
    return {{u"event"_s, u"offer"_s}, {u"version"_s, u"2"_s}, {u"notes"_s, u"en notes"_s}};
}

// The events of a check but for the first, which must be the one that starts each.
QList<QJsonObject> eventsOf(const QString &output)
{
    QList<QJsonObject> events = eventsIn(output);
    EXPECT_EQ(
        events.value(0),
        (QJsonObject{{u"event"_s, u"start"_s}, {u"interface"_s, 2}, {u"program"_s, u"1.0.0"_s}}));
    return events.mid(1);
}

/// Runs the program against a service, with a directory and preferences that start empty.
class CheckCommandTest : public testing::Test
{
protected:
    void SetUp() override { Tool::run({u"preferences"_s, u"--automatic-updating"_s, u"on"_s}); }
    void TearDown() override
    {
        QDir(QDir::homePath() + u"/.config/ZVUpdate"_s).removeRecursively();
    }

    QStringList check(const QStringList &furtherArguments = {u"--json"_s}) const
    {
        return QStringList{u"check"_s, u"--product-id"_s, u"P"_s,    u"--product-version"_s,
                           u"1"_s,     u"--directory"_s,  directory_} +
               furtherArguments;
    }
    QStringList checkIn(const QString &mode) const
    {
        return check({u"--json"_s, u"--mode"_s, mode});
    }

    /// Has the next download stop halfway, until the gate is opened.
    void holdHalfway()
    {
        gate_ = std::make_shared<Gate>();
        service_.setOffer({.gate = gate_});
        QFile::remove(temporary_);
    }
    /// Waits until the service stands at the gate and all that it has sent lies in the file.
    bool waitForHalf() const
    {
        return waitFor([&] { return gate_->isReached() && readFile(temporary_) == half_; });
    }

    const QTemporaryDir root_;
    const QString directory_ = root_.filePath(u"updates"_s);
    const QString temporary_ = directory_ + u"/P_2.bin"_s;
    const QString diskImage_ = directory_ + u"/P_2.dmg"_s;
    const QByteArray half_ = Offer::installer().first(Offer::installer().size() / 2);
    std::shared_ptr<Gate> gate_;
    UpdateService service_;
};

} // namespace

TEST_F(CheckCommandTest, FetchesAnInstallerAndTellsProgramsHow)
{
    const QByteArray file(32 << 20, 'x');
    service_.setOffer({.digest = Offer::digestOf(file), .file = file});

    QElapsedTimer time;
    time.start();
    const auto [status, output, errors] = Tool::run(checkIn(u"session"_s));
    const qint64 milliseconds = time.elapsed();

    EXPECT_EQ(status, 0);
    EXPECT_EQ(errors, QString());
    EXPECT_EQ(readFile(diskImage_), file);
    const auto events = eventsOf(output);
    ASSERT_GE(events.size(), 4);
    EXPECT_EQ(events[0], resultEvent(Kind::DownloadStarted));
    EXPECT_EQ(events[1], offerEvent());
    EXPECT_EQ(events.last(), (QJsonObject{{u"event"_s, u"ready"_s}, {u"path"_s, diskImage_}}));
    qint64 received = 0;
    for (const QJsonObject &event : events.mid(2, events.size() - 3)) {
        EXPECT_EQ(event[u"event"], u"progress"_s);
        EXPECT_EQ(event[u"total"], file.size());
        EXPECT_GE(event[u"received"].toInteger(), received);
        received = event[u"received"].toInteger();
    }
    EXPECT_LE(received, file.size());
    EXPECT_LE(events.size() - 3, 1 + milliseconds / 100);
    EXPECT_EQ(output.section(u'\n', 1, 1).section(u',', 0, 2),
              u"{\"event\":\"result\",\"code\":1,\"outcome\":\"download-started\""_s);

    // Whoever stops it now comes too late.
    Tool again(checkIn(u"connection"_s));
    ASSERT_TRUE(again.waitForOutput(u"\"ready\""_s));
    again.send(SIGTERM);
    again.send(SIGINT);
    EXPECT_EQ(eventsOf(again.end().output),
              (QList{resultEvent(Kind::InstallerReady), offerEvent(), events.last()}));
}

TEST_F(CheckCommandTest, StopsADownloadUponASignal)
{
    for (const auto &[signal, mode] :
         {std::pair(SIGINT, u"session"_s), {SIGTERM, u"connection"_s}}) {
        holdHalfway();
        Tool tool(checkIn(mode));
        ASSERT_TRUE(waitForHalf() && tool.waitForOutput(u"progress"_s));
        tool.send(signal);
        const auto [status, output, errors] = tool.end();
        EXPECT_EQ(status, 128 + signal);
        EXPECT_EQ(eventsOf(output).first(), resultEvent(Kind::DownloadStarted));
        EXPECT_EQ(eventsOf(output).last()[u"event"], u"failed"_s);
        EXPECT_EQ(readFile(temporary_), half_);
    }
}

#ifdef ZVUPDATE_HAS_WINDOW
TEST_F(CheckCommandTest, StopsAtTheWindowUponASignal)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    Tool tool(check({u"--json"_s, u"--show-window"_s, u"--product-name"_s, u"Sample"_s}));
    ASSERT_TRUE(tool.waitForOutput(u"\"ready\""_s));
    tool.send(SIGTERM);
    const auto [status, output, errors] = tool.end();
    EXPECT_EQ(status, 128 + SIGTERM);
    EXPECT_EQ(eventsOf(output).last(),
              (QJsonObject{{u"event"_s, u"ready"_s}, {u"path"_s, diskImage_}}));
}
#endif

TEST_F(CheckCommandTest, StopsWhileTheServiceIsSilent)
{
    const ScriptedServer silent(ScriptedServer::Reply().wait(std::make_shared<Gate>()));
    writeFile(QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s, silent.baseUrl().toUtf8());
    // The program may inherit that a signal is blocked.
    for (const auto &[signal, isBlocked] : {std::pair(SIGINT, false), {SIGTERM, true}}) {
        const size_t before = silent.requests().size();
        sigset_t signals = {};
        sigset_t mask = {};
        sigemptyset(&signals);
        if (isBlocked)
            sigaddset(&signals, signal);
        pthread_sigmask(SIG_BLOCK, &signals, &mask);
        Tool tool(check());
        pthread_sigmask(SIG_SETMASK, &mask, nullptr);
        ASSERT_TRUE(waitFor([&] { return silent.requests().size() > before; }));
        tool.send(signal);
        const auto [status, output, errors] = tool.end();
        EXPECT_EQ(status, 128 + signal);
        ASSERT_EQ(eventsOf(output).size(), 1);
        EXPECT_EQ(eventsOf(output)[0][u"event"], u"failed"_s);
        EXPECT_EQ(eventsOf(output)[0][u"outcome"], u"stopped"_s);
    }
}

TEST_F(CheckCommandTest, StopsWhenNobodyReadsItsOutputAnyMore)
{
    holdHalfway();
    std::array<int, 2> pipe = {};
    ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
    Tool tool(check(), pipe[1]);
    close(pipe[1]);
    ASSERT_TRUE(waitForHalf());
    close(pipe[0]);
    gate_->open();
    const auto [status, output, errors] = tool.end();
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(errors.contains(u"standard output cannot be written"_s)) << qPrintable(errors);
}

TEST_F(CheckCommandTest, StopsWhenItsReaderHasStoppedReading)
{
    for (const bool isFullFromTheStart : {true, false}) {
        const int signal = isFullFromTheStart ? SIGINT : SIGTERM;
        holdHalfway();
        std::array<int, 2> pipe = {};
        ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
        // A description of its own, as the one that the program gets is to wait for its reader.
        const int filler = open(u"/proc/self/fd/%1"_s.arg(pipe[1]).toLatin1().constData(),
                                O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        const auto fill = [filler] {
            while (write(filler, "\n", 1) == 1) {
            }
        };
        if (isFullFromTheStart)
            fill();
        Tool tool(check(), pipe[1]);
        if (isFullFromTheStart) {
            ASSERT_TRUE(waitFor([&] { return tool.catches(signal); }));
        } else {
            QByteArray events(4096, ' ');
            while (!events.contains("progress"))
                ASSERT_GT(read(pipe[0], events.data(), static_cast<size_t>(events.size())), 0);
            fill();
        }
        tool.send(signal);
        EXPECT_EQ(tool.end().status, 128 + signal) << isFullFromTheStart;
        for (const int end : {pipe[0], pipe[1], filler})
            close(end);
    }
}

TEST_F(CheckCommandTest, EndsWithTheStatusOfWhatHappened)
{
    const QStringList nobody{u"--no-delegate"_s};
    const QString fetched = u"result offer progress failed"_s;
    const struct
    {
        Offer offer;
        QStringList options;
        int status = 0;
        QString events;
        QString outcome; ///< Of the last event.
    } cases[] = {
        {{.ok = false}, {}, 3, u"result"_s, u"nothing-newer"_s},
        {{.tokenOk = false}, nobody, 3, u"result"_s, u"no-token"_s},
        {{.sizeReply = Offer::hugeSize()}, {}, 1, u"result offer failed"_s, u"disk-full"_s},
        {{.file = Offer::installer('w')}, {}, 1, fetched, u"wrong-digest"_s},
        {{.file = Offer::installer('w')}, nobody, 1, fetched, u"wrong-digest"_s},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(qPrintable(each.outcome));
        service_.setOffer(each.offer);
        const auto [status, output, errors] = Tool::run(check() + each.options);
        EXPECT_EQ(status, each.status);
        QStringList events;
        const auto all = eventsOf(output);
        for (const QJsonObject &event : all)
            events.append(event[u"event"].toString());
        events.removeDuplicates();
        EXPECT_EQ(events.join(u' '), each.events);
        EXPECT_EQ(all.last()[u"outcome"], each.outcome);
        EXPECT_FALSE(QFileInfo::exists(temporary_) || QFileInfo::exists(diskImage_));
    }
}

TEST_F(CheckCommandTest, FailsWhenTheInstallersPlaceIsTakenOrGone)
{
    const std::pair<std::function<void()>, QString> rows[] = {
        {[this] { QDir().mkpath(diskImage_); }, diskImage_},
        {[this] { writeFile(diskImage_, "another's"); }, diskImage_},
        {[this] { QDir(directory_).removeRecursively(); }, directory_ + u" cannot be written to"_s},
    };
    for (const auto &[take, reason] : rows) {
        holdHalfway(); // Which removes what is kept where a directory is in the installer's place.
        Tool tool(check());
        ASSERT_TRUE(waitForHalf());
        take();
        gate_->open();
        const auto [status, output, errors] = tool.end();
        EXPECT_EQ(status, 1);
        const QJsonObject last = eventsOf(output).last();
        EXPECT_EQ(last[u"event"], u"failed"_s) << qPrintable(output);
        EXPECT_TRUE(last[u"reason"].toString().contains(reason)) << qPrintable(output);
        QDir().rmdir(diskImage_);
    }
}

TEST_F(CheckCommandTest, SkipsACheckThatTheUserHasSwitchedOff)
{
    Tool::run({u"preferences"_s, u"--automatic-updating"_s, u"off"_s});
    const auto off = Tool::run(check());
    EXPECT_EQ(off.status, 6);
    EXPECT_EQ(eventsOf(off.output), QList{resultEvent(Kind::SwitchedOff)});
    EXPECT_EQ(service_.requests(), QStringList());

    // The user may ask all the same, and another application has preferences of its own.
    EXPECT_EQ(Tool::run(check() + QStringList{u"--now"_s}).status, 0);
    EXPECT_EQ(Tool::run(check() + QStringList{u"--application"_s, u"ZVUpdate/Other"_s}).status, 0);
}

TEST_F(CheckCommandTest, LeavesAFileForALaterCheckWithoutADelegate)
{
    const QStringList nobody = check({u"--json"_s, u"--no-delegate"_s});
    for (const Kind kind : {Kind::DownloadStarted, Kind::InstallerReady}) {
        const auto [status, output, errors] = Tool::run(nobody);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(eventsOf(output).first(), resultEvent(kind));
        EXPECT_EQ(eventsOf(output).last()[u"path"], temporary_);
        EXPECT_EQ(readFile(temporary_), Offer::installer());
        EXPECT_FALSE(QFileInfo::exists(diskImage_));
    }
    EXPECT_EQ(Tool::run(check()).status, 0);
    EXPECT_EQ(readFile(diskImage_), Offer::installer());
}

TEST_F(CheckCommandTest, TellsPeopleALineAStep)
{
    const QByteArray part = Offer::installer().left(1024);
    QDir().mkpath(directory_);
    writeFile(temporary_, part);
    QDir(QDir::homePath() + u"/.config/ZVUpdate"_s).removeRecursively();
    const auto fresh = Tool::run(check({}));
    EXPECT_EQ(fresh.status, 0);
    EXPECT_FALSE(fresh.output.contains(u"Resuming"_s));
    EXPECT_FALSE(fresh.output.contains(u'\r'));

    QFile::remove(diskImage_);
    writeFile(temporary_, part);
    const auto resumed = Tool::run(check({u"--debug"_s}));
    const QStringList lines = resumed.output.split(u'\n');
    EXPECT_TRUE(lines[0].startsWith(u"Asking http://127.0.0.1:"_s));
    EXPECT_EQ(lines.mid(1).join(u'\n'),
              u"Version 2 is available\nDownloading it to %1\n"
              "Resuming at 1.0 KiB\nVerified; ready at %2\n"_s.arg(temporary_, diskImage_));
    EXPECT_TRUE(resumed.errors.contains(u"zvupdate: checkUpdate OK ... "_s));
}

TEST_F(CheckCommandTest, DrawsAProgressBarOnATerminal)
{
    // Something comes between two looks.
    const auto firstLook = std::make_shared<Gate>();
    const auto secondLook = std::make_shared<Gate>();
    service_.setOffer({.onItsWay = [=](const auto &request, const QByteArray &bytes) {
        ScriptedServer::Reply reply;
        if (request.method != "GET")
            return reply.send(bytes);
        reply.send(bytes.first(100'000)).wait(firstLook);
        reply.send(bytes.sliced(100'000, 100'000)).wait(secondLook);
        return reply.send(bytes.sliced(200'000));
    }});
    constexpr int columns = 80;
    const winsize size = {.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    int terminal = -1;
    int program = -1;
    ASSERT_EQ(openpty(&terminal, &program, nullptr, nullptr, &size), 0);
    fcntl(terminal, F_SETFL, O_NONBLOCK);
    Tool tool(check({}), program);
    close(program);

    QByteArray shown;
    const auto shows = [&](const char *text) {
        return waitFor([&] {
            char buffer[4096];
            const ssize_t count = read(terminal, buffer, sizeof buffer);
            shown.append(buffer, qMax<ssize_t>(count, 0));
            return shown.contains(text);
        });
    };
    EXPECT_TRUE(shows(" 24 %")) << shown.data();
    firstLook->open();
    EXPECT_TRUE(shows(" 49 %")) << shown.data();
    secondLook->open();
    EXPECT_TRUE(shows("ready at")) << shown.data();
    EXPECT_EQ(tool.end().status, 0);
    close(terminal);

    const qsizetype start = shown.indexOf(" 49 %  [==");
    ASSERT_GE(start, 0) << shown.data();
    const QByteArray bar = shown.mid(start, shown.indexOf('\r', start) - start);
    EXPECT_TRUE(bar.contains("195.3 KiB of 390.6 KiB  ")) << bar.data();
    EXPECT_TRUE(bar.contains(" s left")) << bar.data();
    EXPECT_LT(bar.size(), columns);
}
