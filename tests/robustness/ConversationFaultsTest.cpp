#include "../controller/ControllerTest.h"
#include "support/Campaign.h"
#include "support/DownloadModes.h"
#include "support/LogCapture.h"

using testing::AnyOf;
using namespace Qt::StringLiterals;
using Reply = ScriptedServer::Reply;
using Request = ScriptedServer::Request;

namespace {

/// 500 bytes, of which none can be taken for another.
QByteArray numbers()
{
    QByteArray text;
    for (int i = 100; i < 200; ++i)
        text += QByteArray::number(i) + ";\n";
    return text;
}

/// Whole checks, with their downloads, whose replies are spoilt on their way.
class ConversationFaults : public ControllerTest, public InBothModes
{
public:
    ~ConversationFaults() override
    {
        controller.reset(); // Before the mode changes back.
    }

protected:
    using OnItsWay = std::function<Reply(const Request &, const QByteArray &)>;

    void offer(const OnItsWay &onItsWay = {}, const QString &version = u"2"_s)
    {
        service.setOffer(
            {.version = version, .digest = digest_, .file = file_, .onItsWay = onItsWay});
    }

    void checkAndDownload()
    {
        check();
        EXPECT_TRUE(waitForDownload()) << "A download hangs.";
    }

    /// A check that finds this much of a download, or is the first, after which nothing is where it
    /// should not be.
    void checkSpoilt(const Content &partial, const OnItsWay &onItsWay)
    {
        startAfresh(partial ? QVariantMap{{digestKey, digest_.toLower()}} : QVariantMap());
        place(temporary, partial);
        place(earlier_, "earlier");
        offer(onItsWay);
        checkAndDownload();
        offer();
        EXPECT_THAT(contentOf(diskImage), AnyOf(Content(), Content(file_)));
        EXPECT_EQ(host.heard, contentOf(diskImage) ? QStringList(diskImage) : QStringList());
        for (const QString &path : tree().keys())
            EXPECT_THAT(path, AnyOf(root.filePath(u"above"_s), saveDirectory, diskImage, temporary,
                                    earlier_));
        EXPECT_EQ(contentOf(earlier_), "earlier");
    }

    /// How many healthy checks it takes until the installer is there; -1 for too many.
    int healthyChecks()
    {
        for (int checks = 0; checks <= 5; ++checks) {
            if (contentOf(diskImage) == file_)
                return checks;
            checkAndDownload();
        }
        return -1;
    }

    const LogCapture log_;
    const QByteArray file_ = numbers();
    const Content partial_ = file_.left(200);
    const QString digest_ = Offer::digestOf(file_);
    const QString earlier_ = saved(u"P_1.dmg"_s);
};

INSTANTIATE_TEST_SUITE_P(, ConversationFaults, bothModes, testing::PrintToStringParamName());

/// What becomes of a reply, given what comes before the fault and what after.
using Fault = Reply (*)(const QByteArray &head, const QByteArray &rest);

const Fault faults[] = {
    [](const auto &head, const auto &) { return Reply().send(head).close(); },
    [](const auto &head, const auto &) { return Reply().send(head).reset(); },
    [](const auto &head, const auto &rest) {
        return Reply().send(head).pause(std::chrono::milliseconds(1)).send(rest);
    },
    // From here on bytes are added or changed.
    [](const auto &head, const auto &rest) {
        return Reply().send(head + head.right(1) + rest).close();
    },
    [](const auto &head, const auto &rest) {
        return Reply().send(head + head.right(40) + rest).close();
    },
    [](const auto &head, const auto &rest) {
        return Reply().send(head + '\0' + rest.mid(1)).close();
    },
    [](const auto &head, const auto &rest) {
        return Reply().send(head + '7' + rest.mid(1)).close();
    },
};

} // namespace

// Check, token, size and file, one after the other, with the fault in one of them.
TEST_P(ConversationFaults, AreMadeGoodByTheNextChecks)
{
    qsizetype size = 0;
    checkSpoilt(partial_, [&](const Request &, const QByteArray &reply) {
        size += reply.size();
        return Reply().send(reply);
    });
    ASSERT_EQ(contentOf(diskImage), file_);
    int tried = 0;
    int stuck = 0;
    const int rounds = Campaign::rounds(static_cast<int>(size / 2), 6);
    for (int i = 0; i < rounds; ++i) {
        const qsizetype at = size * i / rounds;
        for (const Fault &fault : faults) {
            SCOPED_TRACE(testing::Message() << "fault " << &fault - faults << " at " << at);
            qsizetype left = at;
            checkSpoilt(partial_, [&](const Request &, const QByteArray &reply) {
                const qsizetype here = std::exchange(left, left - reply.size());
                return here < 0 || here >= reply.size() ? Reply().send(reply)
                                                        : fault(reply.left(here), reply.mid(here));
            });
            // What cannot be gone on with, since it is too long already, stays as it is.
            const qsizetype found = contentOf(temporary).value_or(QByteArray()).size();
            const bool isStuck = healthyChecks() < 0;
            EXPECT_TRUE(!isStuck || (&fault >= &faults[3] && found >= file_.size())) << found;
            stuck += isStuck ? 1 : 0;
            ++tried;
        }
    }
    Campaign::tried(tried);
    RecordProperty("stuck", stuck);
}

// What is wrong with the file's reply, what is left of the download then, and after how many
// healthy checks the installer is there.
TEST_P(ConversationFaults, InRangesAndLengthsCostWhatTheTableSays)
{
    using Spoil = std::function<Reply(QByteArray)>;
    const auto with = [](const char *text, const char *replacement) -> Spoil {
        return [=](QByteArray reply) {
            EXPECT_TRUE(reply.contains(text));
            return Reply().send(reply.replace(text, replacement)).close();
        };
    };
    const auto ignoring = [this](qsizetype cut) -> Spoil {
        return [this, cut](const QByteArray &) {
            const auto head = QByteArrayLiteral("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n");
            return Reply().send(head + file_.left(cut)).close();
        };
    };
    const auto from = [this](qsizetype first) -> Spoil {
        return [this, first](const QByteArray &) { return Reply::whole(206, file_.mid(first)); };
    };
    const struct
    {
        const char *name = nullptr;
        Content before;
        Spoil spoil;
        Content left;
        int checks = 0;
        const char *method = "GET";
    } rows[] = {
        {"Range ignored", partial_, ignoring(500), {}, 1},
        // What is shorter than the file is completed, found wrong and thrown away.
        {"the same, cut", partial_, ignoring(2), *partial_ + file_.left(2), 2},
        {"the same, cut later", partial_, ignoring(299), *partial_ + file_.left(299), 2},
        {"the same, cut when full", partial_, ignoring(300), *partial_ + file_.left(300), -1},
        {"the same, cut beyond", partial_, ignoring(400), *partial_ + file_.left(400), -1},
        {"earlier offset", partial_, from(100), {}, 1},
        {"later offset", partial_, from(300), {}, 1},
        {"no Content-Range", partial_, with("Content-Range", "X"), {}, 0},
        {"another Content-Range", partial_, with("s 200-", "s 100-"), {}, 0},
        {"refused", partial_, with("206", "416"), partial_, 1},
        {"too short", partial_, with(": 300", ": 200"), {}, 1},
        {"too long", partial_, with(": 300", ": 900"), file_, 1},
        {"no length", partial_, with("Content-Length", "X"), {}, 0},
        {"wrong byte", partial_, with("199", "19x"), {}, 1},
        {"complete", file_, {}, {}, 0},
        {"complete, another size", file_, with(": 500", ": 900"), file_, 1, "HEAD"},
        // A whole file that is not the right one, or too much of it, is the service's to judge.
        {"complete, wrong", Content(QByteArray(500, 'w')), {}, QByteArray(500, 'w'), -1},
        {"oversized", file_ + "more", {}, file_ + "more", -1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        checkSpoilt(row.before, [&row](const Request &request, const QByteArray &reply) {
            return row.spoil && request.method == row.method ? row.spoil(reply)
                                                             : Reply().send(reply);
        });
        EXPECT_EQ(contentOf(temporary), row.left);
        EXPECT_EQ(healthyChecks(), row.checks);
    }
    offer({}, u"3"_s);
    checkAndDownload();
    EXPECT_EQ(contentOf(saved(u"P_3.dmg"_s)), file_) << "Another version finds its way.";
}
