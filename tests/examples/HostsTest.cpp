#include "../controller/UpdateService.h"
#include "support/TestFiles.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct Example
{
    const char *name;
    /// What runs it, if it is no program by itself.
    const char *interpreter;
    /// Empty when it was not built.
    const char *path;
};

const Example quickHost = {"Quick", "", ZVUPDATE_QUICK_HOST};
const Example helperHosts[] = {
    {"Python", "python3", ZVUPDATE_EXAMPLES "/python_host/python_host.py"},
    {"Shell", "sh", ZVUPDATE_EXAMPLES "/shell_host/shell_host.sh"},
    {"GLib", "", ZVUPDATE_GLIB_HOST},
};

/// Nothing is sent to 0, which is no process but the tests' own group.
bool sendTo(qint64 process, int signal)
{
    return process != 0 && kill(static_cast<pid_t>(process), signal) == 0;
}

bool isHere(const Example &example)
{
    const QString interpreter = QString::fromLatin1(example.interpreter);
    return *example.path &&
           (interpreter.isEmpty() || !QStandardPaths::findExecutable(interpreter).isEmpty());
}

/// An example, running in a process group of its own, as a shell would have it.
class Host
{
public:
    Host(const Example &example, const char *choice)
    {
        qputenv("ZVUPDATE_TEST_CHOICE", choice);
        QStringList command{QString::fromLatin1(example.interpreter),
                            QString::fromLocal8Bit(example.path)};
        command.removeAll(QString());
        process_.setChildProcessModifier([] {
            setpgid(0, 0);
            std::signal(SIGINT, SIG_DFL); // Whoever runs the tests may have it ignored.
        });
        process_.start(command.takeFirst(), command);
        EXPECT_TRUE(process_.waitForStarted()) << qPrintable(process_.errorString());
    }

    ~Host()
    {
        sendToGroup(SIGKILL);
        process_.waitForFinished();
    }

    void send(int signal) const { sendTo(process_.processId(), signal); }
    /// What a terminal does upon Ctrl-C.
    void sendToGroup(int signal) const { sendTo(-process_.processId(), signal); }

    QString output()
    {
        output_ += process_.readAllStandardOutput();
        return QString::fromUtf8(output_);
    }

    /// Its exit status; -1 when it does not end in order or in time.
    int end()
    {
        if (process_.state() != QProcess::NotRunning && !process_.waitForFinished())
            return -1;
        return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
    }

private:
    QProcess process_;
    QByteArray output_;
};

/// A service, and a home with a desktop, whose programs note down which file they have been asked
/// to open and go on for longer than any test waits.
class HostsTest : public testing::TestWithParam<Example>
{
protected:
    HostsTest()
    {
        const QString programs = QDir::homePath() + u"/programs"_s;
        const QString opener = programs + u"/xdg-open"_s;
        QDir(programs).removeRecursively();
        QDir().mkpath(programs);
        writeFile(opener, "#!/bin/sh\necho $$ >\"$HOME/programs/pid\"\n"
                          "printf %s \"$1\" >\"$HOME/programs/opened\"\nexec sleep 600\n");
        QFile::setPermissions(opener, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("PATH", (programs + u":" ZVUPDATE_BIN ":"_s).toLocal8Bit() + qgetenv("PATH"));
        qputenv("XDG_DATA_HOME", QFile::encodeName(QDir::homePath() + u"/data"_s));
        qputenv("LC_ALL", "C.UTF-8");
        qunsetenv("LANGUAGE");
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("QT_PLUGIN_PATH", ZVUPDATE_PLUGINS);
        qputenv("QT_QPA_GENERIC_PLUGINS", "zvupdate-prompt-chooser");
    }

    /// Whether the installer has been opened, by a program that is still running; ends that.
    bool wasOpened() const
    {
        const QString programs = QDir::homePath() + u"/programs/"_s;
        return waitFor([&] { return readFile(programs + u"opened"_s) == diskImage_.toUtf8(); }) &&
               sendTo(readFile(programs + u"pid"_s).trimmed().toInt(), SIGKILL);
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

    struct Case
    {
        const char *choice;
        const char *told;
    };
    for (const Case &each :
         {Case{"Update", "The installer is open"}, Case{"Not now", "does not want it now"},
          Case{"close", "closed without a choice"}}) {
        Host host(GetParam(), each.choice);
        EXPECT_EQ(host.end(), 0) << each.choice;
        const QString output = host.output();
        EXPECT_TRUE(output.startsWith(u"Version 2 is available.\n"_s)) << qPrintable(output);
        EXPECT_TRUE(output.contains(u"\nReady to install: %1\n"_s.arg(diskImage_)));
        EXPECT_TRUE(output.contains(QLatin1String(each.told))) << qPrintable(output);
    }
    EXPECT_TRUE(wasOpened());
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
    Host host({"Command", "sh", script.constData()}, "Update");
    EXPECT_EQ(host.end(), 0);
    const QString programs = QDir::homePath() + u"/programs/"_s;
    EXPECT_TRUE(waitFor([&] { return readFile(programs + u"taken"_s) == diskImage_.toUtf8(); }));
    EXPECT_FALSE(QFile::exists(programs + u"opened"_s));
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
