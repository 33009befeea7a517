#include "../support/TestFiles.h"
#include "WindowEvents.h"

#include <platform/Bundle.h>
#include <platform/UpdatePreferences.h>
#include <ui/UpdateInfoWindowController.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSessionManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextEdit>

#include <gmock/gmock.h>

#include <optional>

using testing::ElementsAre;
using ZVPlatform::Bundle;

namespace {

class UpdateInfoWindowTest : public testing::Test
{
protected:
    UpdateInfoWindowTest()
    {
        UpdatePreferences::setAutomaticUpdating(true);
        UpdatePreferences::synchronise();
        writeFile(installer, "installer");
        controller.emplace(QStringLiteral("UpdateInfoWindowController"));
        controller->setMProductName(QStringLiteral("Sample App"));
        controller->setMUpdateProductVersion(QStringLiteral("v2.1.0.3"));
        controller->setMUpdateInfo(QStringLiteral("notes"));
        controller->setMUpdateFilePath(installer);
        controller->setDelegate(&events);
    }

    void show()
    {
        controller->reloadWindow();
        controller->showWindow();
        ASSERT_TRUE(controller->window());
        ASSERT_TRUE(QTest::qWaitForWindowActive(controller->window()));
        events.watch(controller->window());
    }

    bool isVisible() { return controller->window()->isVisible(); }

    const QTemporaryDir directory;
    const QString installer = directory.filePath(QStringLiteral("P1_2103 #1%20?.dmg"));
    WindowEvents events;
    std::optional<UpdateInfoWindowController> controller;
};

using Controller = UpdateInfoWindowController;

void key(Controller &controller, Qt::Key key)
{
    QTest::keyClick(controller.window()->focusWidget(), key);
}

void clickUpdate(Controller &controller)
{
    QTest::mouseClick(controller.updateButton(), Qt::LeftButton);
}

void clickNotNow(Controller &controller)
{
    QTest::mouseClick(controller.notNowButton(), Qt::LeftButton);
}

void endSession(Controller &)
{
    // Whoever hears of the session's end does not look at the manager.
    QObject manager;
    Q_EMIT qApp->commitDataRequest(reinterpret_cast<QSessionManager &>(manager));
}

struct Leaving
{
    const char *name;
    Qt::CheckState dontRemind;
    std::function<void(Controller &)> leave;
    QStringList events;
    bool isOnAfterwards = true;
};

void PrintTo(const Leaving &leaving, std::ostream *out)
{
    *out << leaving.name;
}

class LeavingTest : public UpdateInfoWindowTest, public testing::WithParamInterface<Leaving>
{
};

TEST_P(LeavingTest, DoesItsPartsInOrder)
{
    show();
    controller->dontReminedMe()->setTristate(true);
    controller->dontReminedMe()->setCheckState(GetParam().dontRemind);
    GetParam().leave(*controller);
    EXPECT_EQ(events.list(), GetParam().events);
    EXPECT_FALSE(isVisible());
    EXPECT_EQ(UpdatePreferences::automaticUpdating(), GetParam().isOnAfterwards);
}

const QStringList updated = {QStringLiteral("opened P1_2103 #1%20?.dmg"), QStringLiteral("hidden"),
                             QStringLiteral("told 1")};
const QStringList declined = {QStringLiteral("hidden"), QStringLiteral("told 0")};
const QStringList switchedOff = {QStringLiteral("hidden (off)"), QStringLiteral("told 0 (off)")};
const QStringList closed = {QStringLiteral("hidden")};

INSTANTIATE_TEST_SUITE_P(
    Ways, LeavingTest,
    testing::Values(
        Leaving{"Update", Qt::Checked, clickUpdate, updated},
        Leaving{"NotNow", Qt::Unchecked, clickNotNow, declined},
        Leaving{"NotNowForGood", Qt::Checked, clickNotNow, switchedOff, false},
        Leaving{"NotNowUndecided", Qt::PartiallyChecked, clickNotNow, declined},
        Leaving{"CloseBox", Qt::Checked, [](Controller &c) { c.window()->close(); }, closed},
        Leaving{"Escape", Qt::Checked, [](Controller &c) { key(c, Qt::Key_Escape); }, closed},
        Leaving{"EscapeFromTheNotes", Qt::Checked,
                [](Controller &c) {
                    c.updateInfoTextField()->setFocus();
                    key(c, Qt::Key_Escape);
                },
                closed},
        Leaving{"SessionEnd", Qt::Checked, endSession, closed}),
    [](const auto &way) { return way.param.name; });

TEST_F(UpdateInfoWindowTest, ReturnIsUpdateWhereverTheFocusIs)
{
    for (int place = 0; place < 4; ++place) {
        show();
        const QList<QWidget *> places = {controller->updateButton(), controller->notNowButton(),
                                         controller->dontReminedMe(),
                                         controller->updateInfoTextField()};
        places[place]->setFocus();
        key(*controller, place % 2 == 0 ? Qt::Key_Return : Qt::Key_Enter);
        EXPECT_EQ(events.list().mid(3 * place), updated) << place;
    }
}

TEST_F(UpdateInfoWindowTest, UpdateWithoutTheFileDoesNothing)
{
    show();
    QFile::remove(installer);
    clickUpdate(*controller);
    controller->setMUpdateFilePath(std::nullopt);
    clickUpdate(*controller);
    EXPECT_TRUE(isVisible());
    EXPECT_THAT(events.list(), ElementsAre());
}

TEST_F(UpdateInfoWindowTest, ShowsTextsLetterForLetter)
{
    const QString product = QStringLiteral("A & <b>B</b> &C [*]");
    const QString notes = QStringLiteral("<h1>1</h1>\n&amp; & 2\n\nمرحبا\n") +
                          QString(5000, QLatin1Char('W')) + QString(500, QLatin1Char('\n'));
    controller->setMProductName(product);
    controller->setMUpdateInfo(notes);
    show();
    EXPECT_EQ(controller->window()->windowHandle()->title(), product + QStringLiteral(" Update"));
    const QString headline = QStringLiteral("The latest version ") + product +
                             QStringLiteral(" v2.1.0.3 is ready to install now.");
    EXPECT_EQ(controller->updateTitleTextField()->text(), headline);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(controller->updateTitleTextField())
                  ->text(QAccessible::Name),
              headline);

    QTextEdit *field = controller->updateInfoTextField();
    EXPECT_EQ(field->toPlainText(), notes);
    EXPECT_GT(field->verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(field->horizontalScrollBar()->maximum(), 0);
    field->setFocus();
    QTest::keySequence(field, QKeySequence::SelectAll);
    QTest::keySequence(field, QKeySequence::Copy);
    EXPECT_EQ(QApplication::clipboard()->text(), notes);
    QTest::keyClicks(field, QStringLiteral("typed"));
    EXPECT_EQ(field->toPlainText(), notes);
}

TEST_F(UpdateInfoWindowTest, IsUsableFromTheKeyboard)
{
    show();
    EXPECT_EQ(QApplication::focusWidget(), controller->updateButton());
    const QList<QWidget *> order = {controller->notNowButton(), controller->updateInfoTextField(),
                                    controller->dontReminedMe(), controller->updateButton()};
    for (QWidget *next : order) {
        QTest::keyClick(controller->window()->focusWidget(), Qt::Key_Tab);
        EXPECT_EQ(QApplication::focusWidget(), next) << qPrintable(next->objectName());
    }
    QTest::keyClick(controller->window(), Qt::Key_D, Qt::AltModifier);
    EXPECT_TRUE(QTest::qWaitFor([this] { return controller->dontReminedMe()->isChecked(); }));
    QTest::keyClick(controller->window(), Qt::Key_N, Qt::AltModifier);
    EXPECT_TRUE(QTest::qWaitFor([this] { return events.list() == switchedOff; }));
}

TEST_F(UpdateInfoWindowTest, IsAGuest)
{
    QLineEdit host;
    host.show();
    host.setFocus();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&host));
    controller->showWindow();
    // The off-screen platform activates every window; desktops heed this.
    EXPECT_TRUE(controller->window()->testAttribute(Qt::WA_ShowWithoutActivating));

    controller->window()->close();
    host.setReadOnly(true);
    host.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&host));
    controller->showWindow();
    EXPECT_FALSE(controller->window()->testAttribute(Qt::WA_ShowWithoutActivating));

    host.hide();
    const QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
    controller->window()->close();
    QCoreApplication::processEvents();
    EXPECT_EQ(lastWindowClosed.count(), 0);
}

TEST_F(UpdateInfoWindowTest, TakesItsWindowAlong)
{
    show();
    const QPointer<QDialog> window = controller->window();
    controller.reset();
    EXPECT_FALSE(window && window->isVisible());
    EXPECT_THAT(events.list(), ElementsAre(QStringLiteral("hidden")));
    EXPECT_TRUE(QTest::qWaitFor([&window] { return window.isNull(); }));
}

QStringList messages;

struct BrokenLayout
{
    const char *name;
    std::optional<QByteArray> content;
    bool isWindow;
};

class BrokenLayoutTest : public UpdateInfoWindowTest,
                         public testing::WithParamInterface<BrokenLayout>
{
protected:
    ~BrokenLayoutTest() override { Bundle::setFrameworkPath(QStringLiteral(":/ZVUpdate")); }
};

TEST_P(BrokenLayoutTest, SkipsWhatItLacksWithoutAWord)
{
    Bundle::setFrameworkPath(directory.path());
    if (GetParam().content)
        writeFile(directory.filePath(QStringLiteral("UpdateInfoWindowController.ui")),
                  *GetParam().content);
    messages.clear();
    const auto former =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &message) {
            messages.append(message);
        });
    controller->reloadWindow();
    controller->showWindow();
    controller->systemPowerOffNotification();
    controller->windowWillClose();
    controller->cancelAction();
    controller->updateAction();
    qInstallMessageHandler(former);

    EXPECT_EQ(controller->window() != nullptr, GetParam().isWindow);
    if (GetParam().isWindow) {
        EXPECT_EQ(controller->window()->windowTitle(), QStringLiteral("Sample App Update"));
    }
    EXPECT_EQ(messages, QStringList());
    EXPECT_THAT(events.list(), ElementsAre(QStringLiteral("told 0"), updated[0], updated[2]));
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, BrokenLayoutTest,
    testing::Values(
        BrokenLayout{"Missing", std::nullopt, false}, BrokenLayout{"Empty", "", false},
        BrokenLayout{"CutOff", "<ui version=\"4.0\"><widget class=\"QDialog\">", false},
        BrokenLayout{"WithoutAWindow", "<ui version=\"4.0\"/>", false},
        BrokenLayout{"NoDialog", "<ui version=\"4.0\"><widget class=\"QFrame\"/></ui>", false},
        BrokenLayout{"WithoutOutlets", "<ui version=\"4.0\"><widget class=\"QDialog\"/></ui>",
                     true},
        BrokenLayout{"OtherOutlets",
                     "<ui version=\"4.0\"><widget class=\"QDialog\">"
                     "<widget class=\"QLabel\" name=\"updateButton\"/>"
                     "<widget class=\"QSlider\" name=\"updateInfoTextField\"/></widget></ui>",
                     true}),
    [](const auto &layout) { return layout.param.name; });

} // namespace
