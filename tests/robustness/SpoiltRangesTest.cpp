#include "../controller/ControllerTest.h"
#include "support/LogCapture.h"

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

/// Whole checks, with their downloads, that go on with a part while the replies about the file are
/// spoilt.
class SpoiltRanges : public ControllerTest, public InBothModes
{
protected:
    using Spoil = std::function<Reply(QByteArray)>;

    Offer offer(const QString &version = u"2"_s) const
    {
        return {.version = version, .digest = Offer::digestOf(file_), .file = file_};
    }

    void checkAndDownload()
    {
        check();
        EXPECT_TRUE(waitForDownload()) << "A download hangs.";
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
    const QByteArray partial_ = file_.left(200);
};

INSTANTIATE_TEST_SUITE_P(, SpoiltRanges, bothModes, testing::PrintToStringParamName());

} // namespace

// What is wrong with the file's reply, what is left of the download then, and after how many
// healthy checks the installer is there.
TEST_P(SpoiltRanges, CostWhatTheTableSays)
{
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
        QByteArray before;
        Spoil spoil;
        Content left;
        int checks = 0;
        const char *method = "GET";
    } rows[] = {
        {"Range ignored", partial_, ignoring(500), {}, 1},
        // What is shorter than the file is completed, found wrong and thrown away.
        {"the same, cut", partial_, ignoring(2), partial_ + file_.left(2), 2},
        {"the same, cut later", partial_, ignoring(299), partial_ + file_.left(299), 2},
        {"the same, cut when full", partial_, ignoring(300), partial_ + file_.left(300), -1},
        {"the same, cut beyond", partial_, ignoring(400), partial_ + file_.left(400), -1},
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
        {"complete, wrong", QByteArray(500, 'w'), {}, QByteArray(500, 'w'), -1},
        {"oversized", file_ + "more", {}, file_ + "more", -1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        startAfresh({{digestKey, Offer::digestOf(file_)}});
        place(temporary, row.before);
        Offer spoilt = offer();
        spoilt.onItsWay = [&row](const Request &request, const QByteArray &reply) {
            return row.spoil && request.method == row.method ? row.spoil(reply)
                                                             : Reply().send(reply);
        };
        service.setOffer(spoilt);
        checkAndDownload();
        service.setOffer(offer());
        EXPECT_EQ(contentOf(temporary), row.left);
        EXPECT_EQ(healthyChecks(), row.checks);
    }
    service.setOffer(offer(u"3"_s));
    checkAndDownload();
    EXPECT_EQ(contentOf(saved(u"P_3.dmg"_s)), file_) << "Another version finds its way.";
}
