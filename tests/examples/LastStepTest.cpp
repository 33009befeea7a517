#include "../zvupdate-service/RunningService.h"
#include "Desktop.h"

#include <tuple>

using namespace Qt::StringLiterals;

namespace {

/// A host in the form in which its maker hands it out.
struct Form
{
    const char *name;
    Example host;
    const char *program; ///< Where it lies.
    bool isAppImage = false;
    bool isFolder = false; ///< Of its own, in which it lies.
};

const Form forms[] = {
    {"AppImage", {"Sample", "", ZVUPDATE_SAMPLE_APP}, "Sample.AppImage", true},
    {"Folder", {"Sample", "", ZVUPDATE_SAMPLE_APP}, "sample/sample_app", false, true},
    {"Script", {"Python", "python3", ZVUPDATE_EXAMPLES "/python_host/python_host.py"}, "sample.py"},
};

/// The process that runs a file, as a program or as an interpreter's script; 0 without.
qint64 processOf(const QByteArray &program)
{
    const auto processes = QDir(u"/proc"_s).entryList({u"[0-9]*"_s}, QDir::Dirs);
    for (const QString &each : processes) {
        const auto words = readFile(u"/proc/%1/cmdline"_s.arg(each)).split('\0');
        if (words.first(qMin<qsizetype>(2, words.size())).contains(program))
            return each.toLongLong();
    }
    return 0;
}

/// The service for trials, with a version 2 that lives or ends at once, and a host of version 1.
class LastStepTest : public Desktop, public testing::WithParamInterface<std::tuple<Form, bool>>
{
public:
    ~LastStepTest() override
    {
        sendTo(processOf(program_), SIGKILL);
        QFile::remove(override_);
    }

protected:
    LastStepTest()
    {
        QDir(place_).removeRecursively();
        for (const QString &folder : {QFileInfo(QFile::decodeName(program_)).path(),
                                      QFileInfo(override_).path(), service_.served(u"next"_s)})
            QDir().mkpath(folder);
        writeProgram(QFile::decodeName(program_), version1_);
        qputenv("APPIMAGE", program_);
        if (!form_.isAppImage)
            qunsetenv("APPIMAGE");
    }

    /// A file is served as it is, and a folder as an archive.
    bool serves(const QByteArray &version2)
    {
        const QString next = service_.served(u"next"_s);
        const QString program = QFileInfo(QFile::decodeName(program_)).fileName();
        writeProgram(next + u'/' + program, version2);
        if (form_.isFolder)
            QProcess::execute(u"tar"_s,
                              {u"-cJf"_s, service_.served(u"new"_s), u"-C"_s, next, program});
        else
            QFile::rename(next + u'/' + program, service_.served(u"new"_s));
        writeFile(service_.served(u"releases.json"_s),
                  R"({"products":[{"id":"SampleApp","releases":[{"version":"2101",)"
                  R"("installer":"new","notes":{"en":"New."}}]}]})");
        const bool isStarted = service_.start();
        writeFile(override_, service_.baseUrl());
        return isStarted;
    }

    static QByteArray version1()
    {
        const Form form = std::get<Form>(GetParam());
        QByteArray content = readFile(QString::fromLocal8Bit(form.host.path));
        return form.isAppImage ? content.replace(8, 3, "AI\2") : content;
    }

    /// The same with another version in it.
    QByteArray version2() const
    {
        const auto utf16 = [](const QString &text) {
            return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
        };
        return QByteArray(version1_)
            .replace(utf16(u"2100"_s), utf16(u"2101"_s))
            .replace("\"2100\"", "\"2101\"");
    }

    const Form form_ = std::get<Form>(GetParam());
    const QString place_ = QDir::homePath() + u"/applications"_s;
    const QByteArray program_ = QFile::encodeName(place_ + u'/' + QLatin1String(form_.program));
    const QByteArray version1_ = version1();
    const QString override_ = QDir::homePath() + u"/Documents/ConsoleZVUpdate.mac"_s;
    const QString tried_ = QDir::homePath() + u"/tried"_s;
    RunningService service_;
};

} // namespace

TEST_P(LastStepTest, LeadsToTheNextVersionOrBack)
{
    const bool lives = std::get<bool>(GetParam());
    if (!isHere(form_.host) || QStandardPaths::findExecutable(u"zvupdate-apply"_s).isEmpty())
        GTEST_SKIP() << "it was not built, or there is nothing to run or replace it";
    const QByteArray next = lives ? version2() : "#!/bin/sh\necho >\"$HOME/tried\"\nexit 1\n"_ba;
    ASSERT_NE(next, version1_);
    ASSERT_TRUE(serves(next));
    QFile::remove(tried_);

    Host host({"", form_.host.interpreter, program_.constData()}, "Update");
    EXPECT_EQ(host.end(), 0);
    const auto installed = [this] { return readFile(QFile::decodeName(program_)); };
    const auto isOver = [this] {
        return QDir(place_)
            .entryList({u".*"_s}, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
            .isEmpty();
    };
    EXPECT_TRUE(
        waitFor([&] { return (lives ? installed() == next : QFile::exists(tried_)) && isOver(); }));
    EXPECT_EQ(installed(), lives ? next : version1_);
    EXPECT_TRUE(waitFor([&] { return processOf(program_) != 0; })) << "it was not started again";
}

INSTANTIATE_TEST_SUITE_P(Forms, LastStepTest,
                         testing::Combine(testing::ValuesIn(forms), testing::Bool()),
                         [](const auto &each) {
                             return std::string(std::get<0>(each.param).name) +
                                    (std::get<1>(each.param) ? "" : "ThatDiesAtOnce");
                         });
