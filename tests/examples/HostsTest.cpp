#include "../controller/UpdateService.h"
#include "Desktop.h"

#include <QFileInfo>
#include <QSettings>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const Example quickHost = {"Quick", "", ZVUPDATE_QUICK_HOST};
const Example helperHosts[] = {
    {"Python", "python3", ZVUPDATE_EXAMPLES "/python_host/python_host.py", true},
    {"Shell", "sh", ZVUPDATE_EXAMPLES "/shell_host/shell_host.sh"},
    {"GLib", "", ZVUPDATE_GLIB_HOST},
};

/// A service, and a desktop whose program notes down which file it has been asked to open and goes
/// on for longer than any test waits.
class HostsTest : public Desktop, public testing::WithParamInterface<Example>
{
protected:
    HostsTest()
    {
        addProgram("xdg-open", "echo $$ >\"$HOME/programs/pid\"\n"
                               "printf %s \"$1\" >\"$HOME/programs/opened\"\nexec sleep 600\n");
    }

    /// Whether the installer has been opened, by a program that is still running; ends that.
    bool wasOpened() const
    {
        return waitFor([&] { return readFile(programs_ + u"/opened"_s) == diskImage_.toUtf8(); }) &&
               sendTo(readFile(programs_ + u"/pid"_s).trimmed().toInt(), SIGKILL);
    }

    const QString directory_ = QDir::homePath() + u"/data/Example/SampleApp/updates"_s;
    const QString temporary_ = directory_ + u"/SampleApp_2.bin"_s;
    const QString diskImage_ = directory_ + u"/SampleApp_2.dmg"_s;
    UpdateService service_;
};

} // namespace

TEST_P(HostsTest, WalkTheRoadToTheChoiceAtTheWindow)
{
    if (!isHere(GetParam()))
        GTEST_SKIP() << "it was not built, or there is nothing to run it";

    // From a terminal, or from elsewhere.
    for (const int signal : {SIGINT, SIGTERM}) {
        Offer offer;
        offer.gate = std::make_shared<Gate>();
        service_.setOffer(offer);
        QFile::remove(temporary_);
        Host host(GetParam(), "");
        ASSERT_TRUE(waitFor([&] { return host.output().contains(u"Downloading: 49 %"_s); }));
        if (signal == SIGINT)
            host.sendToGroup(signal);
        else
            host.send(signal);
        const int status = host.end();
        EXPECT_TRUE(status == 128 + signal || status == 128 + SIGTERM) << status;
        EXPECT_EQ(readFile(temporary_), offer.file.left(offer.file.size() / 2));
        offer.gate->open();
    }

    for (const auto &[choice, told] : {std::pair("Update", "The installer is open"),
                                       {"Not now", "does not want it now"},
                                       {"close", "closed without a choice"}}) {
        if (GetParam().takesTheStepOver && choice == "Update"_ba)
            continue;
        Host host(GetParam(), choice);
        EXPECT_EQ(host.end(), 0) << choice;
        const QString output = host.output();
        EXPECT_TRUE(output.startsWith(u"Version 2 is available.\n"_s)) << qPrintable(output);
        EXPECT_TRUE(output.contains(u"\nReady to install: %1\n"_s.arg(diskImage_)));
        EXPECT_TRUE(output.contains(QLatin1String(told))) << qPrintable(output);
    }
    if (!GetParam().takesTheStepOver) {
        EXPECT_TRUE(wasOpened());
    }
    EXPECT_EQ(readFile(diskImage_), Offer::installer());
    EXPECT_EQ(service_.requests().filter(u" bytes="_s).size(), 1) << "it was to be resumed once";

    Offer older;
    older.ok = false;
    service_.setOffer(older);
    Host host(GetParam(), "");
    EXPECT_EQ(host.end(), 3);
    EXPECT_EQ(host.output(), u"There is nothing newer. The service says: M\n"_s);
}

INSTANTIATE_TEST_SUITE_P(Helper, HostsTest, testing::ValuesIn(helperHosts),
                         [](const auto &host) { return std::string(host.param.name); });

TEST_F(HostsTest, ACommandTakesTheStepOver)
{
    const QByteArray script = QFile::encodeName(QDir::homePath() + u"/host"_s);
    writeFile(QString::fromLocal8Bit(script),
              "exec zvupdate check --product-id SampleApp --product-version 1 --directory '" +
                  directory_.toUtf8() +
                  "' --show-window --product-name Sample --on-update "
                  "'printf %s \"$1\" >\"$HOME/programs/taken\"; echo heard'\n");
    Host host({"Command", "sh", script.constData(), true}, "Update");
    EXPECT_EQ(host.end(), 0);
    EXPECT_TRUE(waitFor([&] { return readFile(programs_ + u"/taken"_s) == diskImage_.toUtf8(); }));
    EXPECT_FALSE(QFile::exists(programs_ + u"/opened"_s));
    EXPECT_TRUE(host.output().contains(u"\"Update\" was chosen"_s)) << qPrintable(host.output());
    EXPECT_FALSE(host.output().contains(u"heard"_s));
}

TEST_F(HostsTest, QuickHostAsksTheUserAtTheWindowOfItsOwn)
{
    if (!isHere(quickHost))
        GTEST_SKIP() << "it was not built";
    {
        const Host host(quickHost, "Do not ask again");
        EXPECT_TRUE(waitFor([&] {
            QSettings now(u"Example"_s, u"SampleApp"_s);
            now.sync();
            return !now.value("ZVUpdateAutoUpdate", true).toBool();
        }));
        EXPECT_EQ(readFile(diskImage_), Offer::installer());
    }
    QSettings(u"Example"_s, u"SampleApp"_s).clear();
    EXPECT_EQ(Host(quickHost, "Update").end(), 0);
    EXPECT_TRUE(wasOpened());
}
