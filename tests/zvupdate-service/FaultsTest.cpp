#include "RunningService.h"

#include "support/WaitFor.h"

#include <ZVUpdate/service/CheckUpdateResponse.h>

#include <QCryptographicHash>
#include <QFile>

#include <gtest/gtest.h>

#include <string>

using namespace Qt::StringLiterals;

namespace {

class FaultsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        for (int i = 0; i < 100'000; ++i)
            installer_.append(char(i % 251));
        RunningService::write(service_.served(u"new.bin"_s), installer_);
        RunningService::write(service_.served(u"releases.json"_s), R"({"products": [
            {"id": "P", "releases": [{"version": "2", "installer": "new.bin"}]}]})");
    }

    /// Changes what goes wrong while the service runs.
    void setFaults(const char *lines)
    {
        RunningService::write(service_.served(u"faults"_s), lines);
    }

    RunningService::Response download(const QByteArray &method, const QByteArray &range = {},
                                      long patience = RunningService::kPatience)
    {
        return service_.request(method, command_, range, patience);
    }

    void start(const QStringList &options = {})
    {
        ASSERT_TRUE(service_.start(options));
        command_ = service_.download(u"P_2.exe"_s);
    }

    RunningService service_;
    QByteArray installer_;
    QString command_;
};

} // namespace

TEST_F(FaultsTest, SpoilDownloads)
{
    start();
    const QByteArray tail = installer_.last(10);
    const struct
    {
        const char *faults;
        const char *range;
        long status; // 0 when the reply breaks off
        QByteArray body;
        const char *length; // as announced, null when it is not
    } cases[] = {
        {"cut=1000", "", 0, installer_.first(1000), "100000"},
        {"cut=1000", "bytes=400-", 0, installer_.mid(400, 600), "99600"},
        {"cut=1000", "bytes=1000-", 206, installer_.mid(1000), "99000"},
        {"cut=100000", "", 200, installer_, "100000"},
        {"cut=0", "bytes=1000-", 0, {}, "99000"},
        {" # half way\n\n cut # off\r\n", "", 0, installer_.first(50'000), "100000"},
        {"stall=9\ncut=8", "", 0, installer_.first(8), "100000"},
        {"slow=90000000", "bytes=400-", 206, installer_.mid(400), "99600"},
        {"ignore-range", "bytes=400-", 200, installer_, "100000"},
        {"ignore-range", "bytes=100000-", 200, installer_, "100000"},
        {"wrong-size", "bytes=99990-", 0, tail, "11"},
        {"wrong-size=60000", "", 200, installer_.first(60'000), "60000"},
        {"wrong-size=99990", "bytes=99990-", 416, "the range begins past the end of the file\n",
         "42"},
        {"no-length", "bytes=99990-", 206, tail, nullptr},
        {"no-length\ncut=1000", "", 0, installer_.first(1000), nullptr},
        {"server-error=gettoken", "", 200, installer_, "100000"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.faults) + ' ' + c.range);
        setFaults(c.faults);
        const auto response = download("GET", c.range);
        EXPECT_EQ(response.status, c.status);
        EXPECT_TRUE(response.body == c.body) << response.body.size() << " bytes";
        EXPECT_EQ(response.headers.value("content-length"), QByteArray(c.length));
    }
    EXPECT_EQ(service_.stop(), 0);
    const QByteArray log = service_.standardError();
    EXPECT_TRUE(log.contains("; fault: wrong-size) broken off\n")) << log.toStdString();
}

TEST_F(FaultsTest, HoldDownloadsBackUntilTheClientGivesUp)
{
    start();
    const struct
    {
        const char *faults;
        qsizetype least;
        qsizetype most;
    } cases[] = {{"stall=1000", 1000, 1000}, {"slow=1", 0, 100}};
    for (const auto &c : cases) {
        setFaults(c.faults);
        // A busy machine may need another try before the bytes have come in time.
        EXPECT_TRUE(waitFor([&] {
            const auto response = download("GET", {}, 1000);
            const qsizetype size = response.body.size();
            return response.timedOut && size >= c.least && size <= c.most;
        })) << c.faults;
        const QByteArray logged = QByteArray("(fault: ") + c.faults + ") broken off\n";
        EXPECT_TRUE(waitFor([&] { return service_.standardError().contains(logged); }));
    }
}

TEST_F(FaultsTest, SpoilTheOtherReplies)
{
    start();
    const auto announced = [this] {
        const auto reply = service_.request("POST", u"cmd=checkupd&id=P&ver=1"_s);
        return CheckUpdateResponse::getFromJson(QString::fromUtf8(reply.body))->ZVMD5();
    };
    const auto size = [this] { return download("HEAD").headers.value("content-length"); };
    const QString right = announced().value_or(QString());
    setFaults("wrong-digest");
    EXPECT_EQ(announced().value_or(QString()).size(), 32);
    EXPECT_NE(announced(), right);
    setFaults("wrong-size");
    EXPECT_EQ(size(), "100001");
    setFaults("wrong-size=7");
    EXPECT_EQ(size(), "7");
    setFaults("no-length");
    EXPECT_EQ(size(), QByteArray());
    setFaults("expired-token");
    EXPECT_EQ(download("HEAD").status, 403);
    EXPECT_EQ(download("GET").status, 403);
    EXPECT_EQ(announced(), right);
    setFaults("server-error");
    EXPECT_EQ(announced(), std::nullopt);
    EXPECT_EQ(download("GET").status, 500);
    setFaults("server-error=gettoken");
    EXPECT_EQ(service_.request("POST", u"cmd=gettoken"_s).status, 500);
    EXPECT_EQ(announced(), right);
}

TEST_F(FaultsTest, ComeFromTheFileWhileThereIsOne)
{
    start({u"--fault"_s, u"cut=5"_s, u"--fault"_s, u"no-length"_s});
    const auto sent = [this] { return download("GET").body.size(); };
    EXPECT_EQ(sent(), 5);
    setFaults("");
    EXPECT_EQ(sent(), installer_.size());
    setFaults("cut=6");
    EXPECT_EQ(sent(), 6);
    for (const char *bad : {"cut=7\nstal", "cut=7\ncut=8", "cut=7\nslow=0"}) {
        setFaults(bad);
        EXPECT_EQ(sent(), 6) << bad;
    }
    QFile::remove(service_.served(u"faults"_s));
    EXPECT_EQ(sent(), 5);
    EXPECT_EQ(service_.stop(), 0);
    const QByteArray log = service_.standardError();
    EXPECT_EQ(log.count("/faults:2: \""), 3) << log.toStdString();
    EXPECT_EQ(log.count("; what was in force stays: cut=6\n"), 3) << log.toStdString();

    setFaults("stal");
    EXPECT_FALSE(service_.start());
    EXPECT_EQ(service_.exitCode(), 1);
}
