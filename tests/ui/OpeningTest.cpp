#include "../support/Testing.h"
#include "WindowEvents.h"
#include "ui/UpdateInfoWindowController.h"

#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

/// A window for an installer, on a desktop that opens it unless its programs are others.
class OpeningTest : public testing::Test
{
protected:
    void place(const QByteArray &content)
    {
        writeFile(installer_, content);
        controller_.emplace(u"UpdateInfoWindowController"_s);
        controller_->setMUpdateFilePath(installer_);
        controller_->reloadWindow();
        controller_->showWindow();
    }

    const QTemporaryDir directory_;
    const QString installer_ = directory_.filePath(u"P_2.dmg"_s);
    const QString programs_ = QDir::homePath() + u"/programs"_s;
    std::optional<UpdateInfoWindowController> controller_;
};

const QByteArray elf = QByteArrayLiteral("\x7f"
                                         "ELF\2\1\1\0");

} // namespace

TEST_F(OpeningTest, GivesTheDesktopANameByWhichItKnowsTheKind)
{
    const std::pair<QByteArray, const char *> kinds[] = {
        {"!<arch>\ndebian-binary   0", "P_2.deb"},
        {elf + QByteArrayLiteral("AI\2\0"), "P_2.AppImage"},
        {"#!/bin/sh\nexit 0\n", "P_2.run"},
        {QByteArrayLiteral("\1\2\3"), "P_2.dmg"},
    };
    for (const auto &[content, name] : kinds) {
        const WindowEvents events;
        place(content);
        controller_->updateAction();
        EXPECT_EQ(events.list(), QStringList(u"opened "_s + QLatin1String(name)));
        EXPECT_EQ(readFile(directory_.filePath(QString::fromLatin1(name))), content) << name;
        EXPECT_FALSE(controller_->window()->isVisible());
        EXPECT_EQ(QFileInfo(installer_).isExecutable(),
                  content.startsWith("\x7f") || content.startsWith("#!"));
        QFile::remove(installer_);
    }
}

TEST_F(OpeningTest, LeavesOneLinkAndNobodyElsesFile)
{
    const auto path = [this](const char *name) {
        return directory_.filePath(QString::fromLatin1(name));
    };
    const WindowEvents events;
    place("!<arch>\ndebian-binary 1");
    ASSERT_TRUE(QFile::rename(installer_, path("P_1.dmg")));
    controller_->setMUpdateFilePath(path("P_1.dmg"));
    controller_->updateAction();
    writeFile(path("P_2.deb"), "of an earlier file");
    writeFile(path("P_notes.deb"), "the user's");
    place("!<arch>\ndebian-binary 2");
    controller_->updateAction();
    EXPECT_EQ(QDir(directory_.path()).entryList({u"*.deb"_s}),
              QStringList({u"P_2.deb"_s, u"P_notes.deb"_s}));
    EXPECT_EQ(readFile(path("P_2.deb")), "!<arch>\ndebian-binary 2");
}

TEST_F(OpeningTest, SaysWhereTheInstallerIsWhenNoProgramOpensIt)
{
    WindowEvents events; // Also of what is opened from here on.
    writeFile(programs_, "");
    place(elf + QByteArrayLiteral("AI\2\0"));
    controller_->setDelegate(&events);
    controller_->updateAction();
    EXPECT_TRUE(controller_->window()->isVisible());
    EXPECT_EQ(events.list(), QStringList());
    EXPECT_EQ(controller_->updateInfoTextField()->toPlainText(),
              directory_.filePath(u"P_2.AppImage"_s));
    EXPECT_TRUE(controller_->updateInfoTitleTextField()->isVisible());
    EXPECT_EQ(controller_->updateButton()->text(), u"Show in folder"_s);
    EXPECT_FALSE(readFile(QDir::homePath() + u"/asked"_s).contains("octet-stream"));

    controller_->updateAction();
    EXPECT_TRUE(waitFor([&] { return !events.list().isEmpty(); }));
    EXPECT_EQ(events.openedPath(), directory_.path());
    EXPECT_TRUE(controller_->window()->isVisible());

    writeFile(programs_, "launcher.desktop\n");
    controller_->reloadWindow();
    controller_->updateAction();
    EXPECT_EQ(events.list().mid(1), QStringList({u"opened P_2.AppImage"_s, u"told 1"_s}));
}

TEST_F(OpeningTest, OpensNothingWhenTheDelegateSeesToIt)
{
    struct Installing final : UpdateInfoWindowControllerDelegate
    {
        ~Installing() override { retire(); }
        void infoWindowClosedActions(uint64_t action) override
        {
            heard.append(QString::number(action));
        }
        bool infoWindowInstalls(const QString &path) override
        {
            heard.append(path);
            controller->updateAction(); // The user presses on, while the host asks something.
            controller->cancelAction();
            if (!isTaking)
                controller->window()->close();
            return isTaking;
        }
        bool isTaking = false;
        UpdateInfoWindowController *controller = nullptr;
        QStringList heard;
    } host;
    const WindowEvents events;
    place("!<arch>\ndebian-binary");
    host.controller = &*controller_;
    controller_->setDelegate(&host);
    controller_->updateAction(); // Which the host ends by closing the window.
    host.isTaking = true;
    controller_->showWindow();
    controller_->updateAction();
    EXPECT_EQ(host.heard, QStringList({installer_, installer_, u"1"_s}));
    EXPECT_EQ(events.list(), QStringList());
    EXPECT_FALSE(controller_->window()->isVisible());
}
