#include "../controller/ControllerTest.h"
#include "support/Campaign.h"
#include "support/DownloadModes.h"
#include "support/FaultRelay.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

using Fault = FaultRelay::Fault;
using std::chrono::milliseconds;
using testing::AnyOf;
using namespace Qt::StringLiterals;

namespace {

constexpr auto toServer = FaultRelay::ToServer;
constexpr auto toClient = FaultRelay::ToClient;

/// 500 bytes, of which none can be taken for another.
QByteArray numbers()
{
    QByteArray text;
    for (int i = 100; i < 200; ++i)
        text += QByteArray::number(i) + ";\n";
    return text;
}

/// Whole checks, with their downloads, by a controller whose service is behind a relay.
class ConversationFaults : public ControllerTest, public testing::WithParamInterface<DownloadMode>
{
public:
    ~ConversationFaults() override
    {
        controller.reset(); // Before the mode changes back.
    }

protected:
    ConversationFaults() { offer(u"2"_s); }

    void offer(const QString &version)
    {
        Offer offered;
        offered.version = version;
        offered.file = file_;
        offered.digest = digest_;
        service.setOffer(offered);
    }

    void checkAndDownload()
    {
        check();
        EXPECT_TRUE(waitForDownload()) << "A download hangs.";
    }

    /// A check through a relay, after which nothing is where it should not be.
    void checkThrough(const FaultRelay &relay)
    {
        writeFile(overridePath_, relay.baseUrl().toUtf8());
        checkAndDownload();
        writeFile(overridePath_, service_.toUtf8());
        EXPECT_THAT(contentOf(diskImage), AnyOf(Content(), Content(file_)));
        EXPECT_EQ(host.heard, contentOf(diskImage) ? QStringList(diskImage) : QStringList());
        for (const QString &path : tree().keys())
            EXPECT_THAT(path, AnyOf(root.filePath(u"above"_s), saveDirectory, diskImage, temporary,
                                    earlier_));
        EXPECT_EQ(contentOf(earlier_), "earlier");
    }

    /// How many checks on a healthy path it takes until the installer is there; -1 for too many.
    int healthyChecks()
    {
        for (int checks = 0; checks <= 5; ++checks) {
            if (contentOf(diskImage) == file_)
                return checks;
            checkAndDownload();
        }
        return -1;
    }

    /// As a first check finds it, or one that finds this much of a download.
    void begin(const Content &partial)
    {
        startAfresh(partial ? QVariantMap{{digestKey, digest_.toLower()}} : QVariantMap());
        place(temporary, partial);
        place(earlier_, "earlier");
    }

    const DownloadModeSwitch switch_{GetParam()};
    const LogCapture log_;
    const QByteArray file_ = numbers();
    const QString digest_ = Offer::digestOf(file_);
    const QString earlier_ = saved(u"P_1.dmg"_s);
    const QString overridePath_ = QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
    const QString service_ = QString::fromUtf8(readFile(overridePath_));
};

INSTANTIATE_TEST_SUITE_P(, ConversationFaults,
                         testing::Values(DownloadMode::Session, DownloadMode::Connection),
                         testing::PrintToStringParamName());

} // namespace

// Check, token, size and file come over one connection, which is spoiled all along.
TEST_P(ConversationFaults, AreMadeGoodByTheNextChecks)
{
    const Content partial = file_.left(200);
    FaultRelay healthy(service_);
    begin(partial);
    checkThrough(healthy);
    ASSERT_EQ(contentOf(diskImage), file_);
    int tried = 0;
    int stuck = 0;
    for (const auto direction : {toServer, toClient}) {
        const auto size = static_cast<int>(healthy.received(direction).size());
        const int rounds = Campaign::rounds(size / 4, 3);
        for (int i = 0; i < rounds; ++i) {
            const int at = size * i / rounds;
            const Fault faults[] = {FaultRelay::finish(direction, at),
                                    FaultRelay::reset(direction, at),
                                    FaultRelay::split(direction, at),
                                    FaultRelay::duplicate(direction, at, 1),
                                    FaultRelay::duplicate(direction, at, 40),
                                    FaultRelay::rewrite(direction, at, QByteArray(1, '\0')),
                                    FaultRelay::rewrite(direction, at, "7")};
            for (const Fault &fault : faults) {
                SCOPED_TRACE(testing::Message() << "fault " << fault.kind << " of direction "
                                                << direction << " at " << at);
                begin(partial);
                const FaultRelay relay(service_, fault, milliseconds(60));
                checkThrough(relay);
                EXPECT_TRUE(fault.kind != Fault::Drip || contentOf(diskImage) == file_);
                // What cannot be gone on with, since it is too long already, stays as it is.
                const bool addsBytes = fault.kind >= Fault::Duplicate;
                const qsizetype left = contentOf(temporary).value_or(QByteArray()).size();
                const bool isStuck = healthyChecks() < 0;
                EXPECT_TRUE(!isStuck || (addsBytes && left >= file_.size())) << left;
                stuck += isStuck ? 1 : 0;
                ++tried;
            }
        }
    }
    Campaign::tried(tried);
    RecordProperty("stuck", stuck);
}

// What is wrong with the file's reply, what is left of the download then, and after how many checks
// on a healthy path the installer is there.
TEST_P(ConversationFaults, InRangesAndLengthsCostWhatTheTableSays)
{
    const Content partial = file_.left(200);
    FaultRelay healthy(service_);
    begin(partial);
    checkThrough(healthy);
    const auto rewriteLast = [&](FaultRelay::Direction direction, const QByteArray &text,
                                 const QByteArray &replacement) {
        const qsizetype at = healthy.received(direction).lastIndexOf(text);
        EXPECT_GE(at, 0) << text.data();
        return FaultRelay::rewrite(direction, at, replacement);
    };
    const Fault ignored = rewriteLast(toServer, "Range", "Rangx");
    FaultRelay ignoring(service_, ignored);
    begin(partial);
    checkThrough(ignoring);
    const qsizetype body = ignoring.received(toClient).size() - file_.size();
    const qsizetype whole = healthy.received(toClient).size(); // The client would wait for more.
    const struct
    {
        const char *name = nullptr;
        Content before;
        Fault fault;
        Content left;
        int checks = 0;
        qsizetype cut = -1; // After so many bytes of all replies.
    } rows[] = {
        {"Range ignored", partial, ignored, {}, 1},
        // What is shorter than the file is completed, found wrong and thrown away.
        {"the same, cut", partial, ignored, *partial + file_.left(2), 2, body + 2},
        {"the same, cut later", partial, ignored, *partial + file_.left(299), 2, body + 299},
        {"the same, cut when full", partial, ignored, *partial + file_.left(300), -1, body + 300},
        {"the same, cut beyond", partial, ignored, *partial + file_.left(400), -1, body + 400},
        {"earlier offset", partial, rewriteLast(toServer, "=200-", "=100-"), {}, 1},
        {"later offset", partial, rewriteLast(toServer, "=200-", "=300-"), {}, 1},
        {"no Content-Range", partial, rewriteLast(toClient, "Content-Range", "X"), {}, 0},
        {"another Content-Range", partial, rewriteLast(toClient, "s 200-", "s 100-"), {}, 0},
        {"refused", partial, rewriteLast(toClient, "206", "416"), partial, 1},
        {"too short", partial, rewriteLast(toClient, ": 300", ": 200"), {}, 1},
        {"too long", partial, rewriteLast(toClient, ": 300", ": 900"), file_, 1, whole},
        {"no length", partial, rewriteLast(toClient, "Content-Length", "X"), {}, 0, whole},
        {"wrong byte", partial, rewriteLast(toClient, "199", "19x"), {}, 1},
        {"complete", file_, {}, {}, 0},
        {"complete, another size", file_, rewriteLast(toClient, ": 500", ": 900"), file_, 1},
        // A whole file that is not the right one, or too much of it, is the service's to judge.
        {"complete, wrong", Content(QByteArray(500, 'w')), {}, QByteArray(500, 'w'), -1},
        {"oversized", file_ + "more", {}, file_ + "more", -1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        begin(row.before);
        FaultRelay relay(service_, row.fault);
        FaultRelay cutting(relay.baseUrl(),
                           row.cut < 0 ? Fault() : FaultRelay::finish(toClient, row.cut));
        checkThrough(cutting);
        EXPECT_EQ(contentOf(temporary), row.left);
        EXPECT_EQ(healthyChecks(), row.checks);
    }
    offer(u"3"_s);
    checkAndDownload();
    EXPECT_EQ(contentOf(saved(u"P_3.dmg"_s)), file_) << "Another version finds its way.";
}
