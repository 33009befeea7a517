#include "../support/Testing.h"
#include "WindowEvents.h"

#include <preferences/UpdatePreferences.h>
#include <ui/UpdateInfoWindowController.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QDialog>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSessionManager>
#include <QSignalSpy>
#include <QTest>
#include <QTextCursor>
#include <QTextEdit>
#include <QTimer>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

using Controller = UpdateInfoWindowController;

class UpdateInfoWindowTest : public testing::Test
{
protected:
    UpdateInfoWindowTest()
    {
        UpdatePreferences::setAutomaticUpdating(true);
        UpdatePreferences::synchronise();
        writeFile(installer, "installer");
        make();
    }

    void make(const std::optional<QString> &bundlePath = std::nullopt)
    {
        controller.emplace(u"UpdateInfoWindowController"_s, bundlePath);
        controller->setMProductName(u"Sample App"_s);
        controller->setMUpdateProductVersion(u"v2.1.0.3"_s);
        controller->setMUpdateFilePath(installer);
        controller->setDelegate(&events);
    }

    void show()
    {
        controller->reloadWindow();
        controller->showWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(controller->window()));
        events.watch(controller->window());
    }

    // The window answers keys from then on.
    void showAndSettle()
    {
        show();
        QTest::qWait(501);
    }

    const QTemporaryDir directory;
    const QString installer = directory.filePath(u"P1 #1%20?.dmg"_s);
    WindowEvents events;
    std::optional<Controller> controller;
};

const QStringList updated = {u"opened P1 #1%20?.dmg"_s, u"hidden"_s, u"told 1"_s};
const QStringList declined = {u"hidden"_s, u"told 0"_s};
const QStringList declinedForGood = {u"hidden (off)"_s, u"told 0 (off)"_s};
const QStringList closed = {u"hidden"_s};

void update(Controller &c)
{
    QTest::mouseClick(c.updateButton(), Qt::LeftButton);
}

void notNow(Controller &c)
{
    QTest::mouseClick(c.notNowButton(), Qt::LeftButton);
}

void closeBox(Controller &c)
{
    c.window()->close();
}

void escape(Controller &c)
{
    c.updateInfoTextField()->setFocus();
    QTest::keyClick(c.updateInfoTextField(), Qt::Key_Escape);
}

void sessionEnd(Controller &c)
{
    struct Refusal final : QObject
    {
        using QObject::QObject;
        bool eventFilter(QObject *, QEvent *event) override
        {
            if (event->type() == QEvent::Close)
                event->ignore();
            return event->type() == QEvent::Close;
        }
    };
    c.window()->installEventFilter(new Refusal(c.window()));
    // Whoever hears of the session's end does not look at the manager.
    QObject manager;
    Q_EMIT qApp->commitDataRequest(reinterpret_cast<QSessionManager &>(manager));
}

TEST_F(UpdateInfoWindowTest, DoesThePartsOfALeaveInOrder)
{
    const struct
    {
        Qt::CheckState dontRemind = Qt::Unchecked;
        void (*leave)(Controller &) = nullptr;
        QStringList events;
    } ways[] = {{Qt::Checked, update, updated},
                {Qt::Unchecked, notNow, declined},
                {Qt::PartiallyChecked, notNow, declined},
                {Qt::Checked, closeBox, closed},
                {Qt::Checked, escape, closed},
                {Qt::Checked, [](Controller &c) { c.windowWillClose(); }, closed},
                {Qt::Checked, sessionEnd, closed},
                {Qt::Checked, notNow, declinedForGood}};
    for (const auto &[dontRemind, leave, expected] : ways) {
        SCOPED_TRACE(qPrintable(expected.join(u' ')));
        make();
        showAndSettle();
        const qsizetype before = events.list().size();
        controller->dontReminedMe()->setTristate(true);
        controller->dontReminedMe()->setCheckState(dontRemind);
        leave(*controller);
        EXPECT_EQ(events.list().mid(before), expected);
        EXPECT_FALSE(controller->window()->isVisible());
        EXPECT_EQ(UpdatePreferences::automaticUpdating(), expected != declinedForGood);
    }
}

TEST_F(UpdateInfoWindowTest, UpdateWithoutTheFileDoesNothing)
{
    show();
    QFile::remove(installer);
    update(*controller);
    controller->setMUpdateFilePath(std::nullopt);
    update(*controller);
    EXPECT_TRUE(controller->window()->isVisible());
    EXPECT_EQ(events.list(), QStringList());
}

// Desktops shorten "..".
TEST_F(UpdateInfoWindowTest, OpensTheFileThatALinkLeadsTo)
{
    const QDir root(directory.path());
    root.mkpath(u"real/below"_s);
    ASSERT_TRUE(QFile::link(root.filePath(u"real/below"_s), root.filePath(u"link"_s)));
    writeFile(root.filePath(u"real/P1.dmg"_s), "installer");
    controller->setMUpdateFilePath(root.filePath(u"link/../P1.dmg"_s));
    show();
    update(*controller);
    EXPECT_EQ(events.openedPath(), root.canonicalPath() + u"/real/P1.dmg"_s);
}

TEST_F(UpdateInfoWindowTest, DoesNotAnswerAKeyThatWasMeantForAnotherWindow)
{
    QPushButton host;
    host.show();
    host.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&host));
    QTest::keyPress(&host, Qt::Key_Return);
    show();
    QElapsedTimer active;
    active.start();
    const auto repeat = [this](Qt::Key key = Qt::Key_Return) {
        for (const bool down : {false, true})
            QTest::simulateEvent(controller->window(), down, key, Qt::NoModifier, u"\r"_s, true);
    };
    while (!active.hasExpired(800)) {
        repeat();
        QTest::qWait(20);
    }
    QTest::keyRelease(controller->window(), Qt::Key_Return);
    EXPECT_EQ(events.list(), QStringList());
    QTest::keyClick(controller->window(), Qt::Key_Return);
    EXPECT_EQ(events.list(), updated);

    // Nor one that goes down while the user has hardly seen the window.
    controller->window()->hide();
    show();
    const QStringList before = events.list();
    QTest::keyPress(controller->window(), Qt::Key_Return);
    QTest::qWait(501);
    repeat();
    QTest::keyRelease(controller->window(), Qt::Key_Return);
    EXPECT_EQ(events.list(), before);

    // Nor one that repeats for the first time after that.
    controller->window()->hide();
    const QStringList hidden = events.list();
    controller->setMUpdateInfo(QString(500, u'\n') + u"notes"_s);
    showAndSettle();
    repeat();
    EXPECT_EQ(events.list(), hidden);
    QTest::keyRelease(controller->window(), Qt::Key_Return);

    // A key that counts does so each time that it repeats.
    QTest::keyPress(controller->window(), Qt::Key_PageDown);
    const QScrollBar *bar = controller->updateInfoTextField()->verticalScrollBar();
    const int once = bar->value();
    repeat(Qt::Key_PageDown);
    repeat(Qt::Key_PageDown);
    EXPECT_EQ(bar->value(), 3 * once);
    QTest::keyRelease(controller->window(), Qt::Key_PageDown);
}

TEST_F(UpdateInfoWindowTest, IsUsableFromTheKeyboard)
{
    controller->setMUpdateInfo(QString(500, u'\n') + u"notes"_s);
    showAndSettle();
    EXPECT_EQ(QApplication::focusWidget(), controller->updateButton());
    const QList<QWidget *> order = {controller->notNowButton(), controller->updateInfoTextField(),
                                    controller->dontReminedMe(), controller->updateButton()};
    for (QWidget *next : order) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        EXPECT_EQ(QApplication::focusWidget(), next) << qPrintable(next->objectName());
        const QScrollBar *bar = controller->updateInfoTextField()->verticalScrollBar();
        QTest::keyClick(next, Qt::Key_PageDown);
        EXPECT_GT(bar->value(), 0) << qPrintable(next->objectName());
        QTest::keyClick(next, Qt::Key_PageUp);
        EXPECT_EQ(bar->value(), 0) << qPrintable(next->objectName());
    }
    controller->notNowButton()->setAutoDefault(true); // Desktops may have Return press it.
    for (qsizetype place = 0; place < order.size(); ++place) {
        controller->window()->hide();
        showAndSettle();
        const qsizetype before = events.list().size();
        order[place]->setFocus();
        QTest::keyClick(order[place], place % 2 == 0 ? Qt::Key_Return : Qt::Key_Enter);
        EXPECT_EQ(events.list().mid(before), updated) << "Return is Update from everywhere.";
    }
    showAndSettle();
    const qsizetype before = events.list().size();
    QTest::keyClick(controller->window(), Qt::Key_D, Qt::AltModifier);
    EXPECT_TRUE(QTest::qWaitFor([this] { return controller->dontReminedMe()->isChecked(); }));
    QTest::keyClick(controller->window(), Qt::Key_N, Qt::AltModifier);
    EXPECT_TRUE(QTest::qWaitFor([&] { return events.list().mid(before) == declinedForGood; }));
}

TEST_F(UpdateInfoWindowTest, ShowsTextsLetterForLetter)
{
    const QString product = u"A & <b>B</b> &C [*]"_s;
    const QString notes =
        u"<h1>1</h1>\n&amp; & 2\n\nمرحبا\n"_s + QString(5000, u'W') + QString(500, u'\n');
    controller->setMProductName(product);
    controller->setMUpdateInfo(notes);
    showAndSettle();
    EXPECT_EQ(controller->window()->windowHandle()->title(), product + u" Update"_s);
    EXPECT_EQ(controller->updateTitleTextField()->text(),
              u"The latest version %1 v2.1.0.3 is ready to install now."_s.arg(product));

    QTextEdit *field = controller->updateInfoTextField();
    EXPECT_EQ(field->toPlainText(), notes);
    EXPECT_GT(field->verticalScrollBar()->maximum(), 0);
    EXPECT_EQ(field->horizontalScrollBar()->maximum(), 0);
    QTest::keyClicks(field, u"typed"_s);
    QTest::keySequence(field, QKeySequence::SelectAll);
    QTest::keySequence(field, QKeySequence::Copy);
    EXPECT_EQ(QApplication::clipboard()->text(), notes);
}

TEST_F(UpdateInfoWindowTest, IsAsHighAsItsNotes)
{
    int former = 0;
    for (const QString &notes : {u" \n"_s, u"short"_s, QString(1000, u'\n') + u"long"_s}) {
        make();
        controller->setMUpdateInfo(notes);
        show();
        EXPECT_GT(controller->window()->height(), former);
        EXPECT_EQ(controller->updateInfoTextField()->isVisible(), former > 0);
        EXPECT_EQ(controller->updateInfoTitleTextField()->isVisible(), former > 0);
        former = controller->window()->height();
    }
    EXPECT_EQ(former, 420);
    const QTextEdit *field = controller->updateInfoTextField();
    EXPECT_EQ(field->cursorRect(QTextCursor(field->document())).topLeft(), QPoint(12, 12));
}

TEST_F(UpdateInfoWindowTest, ShortensTheProductsNameInTheMiddle)
{
    show();
    QLabel *headline = controller->updateTitleTextField();
    EXPECT_EQ(headline->toolTip(), QString());
    EXPECT_GT(headline->fontInfo().pointSizeF(), 1.1 * QApplication::font().pointSizeF());
    QList<QImage> pictures;
    for (const QChar inTheMiddle : {u'a', u'a', u'b'}) {
        const QString around(400, u'W');
        controller->setMProductName(u"<b>"_s + around + inTheMiddle + around);
        controller->reloadWindow();
        pictures.append(headline->grab().toImage());
        EXPECT_TRUE(headline->toolTip().contains(headline->text().toHtmlEscaped()));
    }
    EXPECT_EQ(pictures[1], pictures[2]);
    controller->setMUpdateProductVersion(u"v2.1.0.4"_s);
    controller->reloadWindow();
    EXPECT_NE(headline->grab().toImage(), pictures[2]);
}

TEST_F(UpdateInfoWindowTest, ShowsItsFocusAndItsKeysAndNamesThem)
{
    show();
    QList<QImage> pictures;
    for (QWidget *focused : {controller->updateButton(), controller->notNowButton()}) {
        focused->setFocus();
        for (QWidget *button : {controller->updateButton(), controller->notNowButton()})
            pictures << button->grab().toImage();
    }
    EXPECT_NE(pictures[0], pictures[2]);
    EXPECT_NE(pictures[1], pictures[3]);
    const QList<std::pair<QAbstractButton *, QString>> keys = {
        {controller->updateButton(), u"Alt+U"_s},
        {controller->notNowButton(), u"Alt+N"_s},
        {controller->dontReminedMe(), u"Alt+D"_s}};
    for (const auto &[button, key] : keys) {
        QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(button);
        EXPECT_EQ(accessible->text(QAccessible::Description), key);
        EXPECT_EQ(accessible->text(QAccessible::Name), button->text());
        const QImage marked = button->grab().toImage();
        button->setShortcut({});
        EXPECT_NE(button->grab().toImage(), marked) << qPrintable(key);
    }
}

// They are the most that a reply of two megabytes can hold. A second is what each may take; the
// rest is for a busy machine.
TEST_F(UpdateInfoWindowTest, ShowsFloodsAtOnceAndCopiesThemUnchanged)
{
    const QString floods[] = {QString(1'040'000, u'W'),
                              u"\U0001F469"_s +
                                  u"\u200d\U0001F469"_s.repeated(148'000), // One emoji.
                              u"a"_s + QString(520'000, u'\u0301'),
                              QString(1'040'000, u'\n') + u'x',
                              u"a\n"_s.repeated(520'000),
                              QString(1'040'000, u'\t') + u'x',
                              QString(520'000, QChar(QChar::Nbsp)) + u'x',
                              QString(520'000, u'م'),
                              u"aא"_s.repeated(346'000),
                              u"a\u200f"_s.repeated(260'000),
                              u"aбγ"_s.repeated(208'000)};
    for (const QString &notes : floods) {
        SCOPED_TRACE(&notes - floods);
        make();
        controller->setMUpdateInfo(notes);
        QElapsedTimer time;
        time.start();
        show();
        controller->window()->grab();
        EXPECT_LT(time.elapsed(), 30'000);
        RecordProperty("milliseconds" + std::to_string(&notes - floods),
                       std::to_string(time.elapsed()));
        QTextEdit *field = controller->updateInfoTextField();
        QScrollBar *bar = field->verticalScrollBar();
        EXPECT_TRUE(QTest::qWaitFor(
            [field, bar] {
                bar->setValue(bar->maximum());
                QTextCursor end(field->document());
                end.movePosition(QTextCursor::End);
                return field->cursorRect(end).top() < field->viewport()->height();
            },
            30'000))
            << "The end cannot be reached.";
        field->selectAll();
        field->copy();
        EXPECT_TRUE(QApplication::clipboard()->text() == notes);
        // Which has no way to tell special spaces.
        EXPECT_TRUE(field->toPlainText() == QString(notes).replace(QChar(QChar::Nbsp), u' '));
    }
}

TEST_F(UpdateInfoWindowTest, IsAGuest)
{
    // The off-screen platform activates every window; desktops heed the attribute.
    QLineEdit host;
    for (const bool isTyping : {true, false}) {
        host.setReadOnly(!isTyping);
        host.show();
        host.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&host));
        controller->showWindow();
        EXPECT_EQ(controller->window()->testAttribute(Qt::WA_ShowWithoutActivating), isTyping);
        controller->window()->hide();
    }

    // Closing it as the last window does not end the host; the end of the host takes it along.
    host.hide();
    show();
    const QSignalSpy lastWindowClosed(qApp, &QGuiApplication::lastWindowClosed);
    QTimer::singleShot(0, controller->window(), &QDialog::close);
    QTimer::singleShot(0, qApp, [&lastWindowClosed] {
        EXPECT_EQ(lastWindowClosed.count(), 0);
        QCoreApplication::quit();
    });
    QApplication::exec();
    EXPECT_EQ(controller->window(), nullptr);
}

// Under the address sanitizer.
TEST_F(UpdateInfoWindowTest, MayBeDestroyedByWhoeverSeesItsWindowClose)
{
    show();
    QObject::connect(controller->window(), &QDialog::finished, qApp,
                     [this] { controller.reset(); });
    controller->systemPowerOffNotification();
    EXPECT_EQ(events.list(), QStringList{u"hidden"_s});
}

TEST_F(UpdateInfoWindowTest, SkipsWhatItsLayoutLacksWithoutAWord)
{
    const std::pair<QByteArray, bool> cases[] = {
        {"", false}, // Not even a file.
        {" ", false},
        {"<ui version=\"4.0\"><widget class=\"QDialog\">", false},
        {"<ui version=\"4.0\"/>", false},
        {"<ui><widget class=\"QFrame\"/></ui>", false},
        {"<ui><widget class=\"QDialog\"/></ui>", true},
        {R"(<ui><widget class="QDialog"><widget class="QLabel" name="updateButton"/></widget></ui>)",
         true},
    };
    static QStringList messages;
    for (const auto &[layout, isWindow] : cases) {
        SCOPED_TRACE(layout.constData());
        make(directory.path());
        if (!layout.isEmpty())
            writeFile(directory.filePath(u"UpdateInfoWindowController.ui"_s), layout);
        const qsizetype before = events.list().size();
        const auto former = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &m) { messages.append(m); });
        controller->reloadWindow();
        controller->showWindow();
        controller->systemPowerOffNotification();
        controller->windowWillClose();
        controller->cancelAction();
        controller->updateAction();
        qInstallMessageHandler(former);

        ASSERT_EQ(controller->window() != nullptr, isWindow);
        EXPECT_TRUE(!isWindow || controller->window()->windowTitle() == u"Sample App Update");
        EXPECT_EQ(messages, QStringList());
        EXPECT_EQ(events.list().mid(before), (QStringList{u"told 0"_s, updated[0], updated[2]}));
    }

    // A host may put parts of its own where the layout has none.
    auto *window = controller->window();
    controller->setUpdateButton(new QPushButton(window));
    controller->setNotNowButton(new QPushButton(window));
    controller->setDontReminedMe(new QCheckBox(window));
    controller->setUpdateTitleTextField(new QLabel(window));
    controller->setUpdateInfoTitleTextField(new QLabel(window));
    controller->setUpdateInfoTextField(new QTextEdit(window));
    controller->setMUpdateInfo(u"Notes."_s);
    controller->reloadWindow();
    EXPECT_EQ((QStringList{controller->updateButton()->text(), controller->notNowButton()->text(),
                           controller->dontReminedMe()->text(),
                           controller->updateTitleTextField()->text(),
                           controller->updateInfoTitleTextField()->text(),
                           controller->updateInfoTextField()->toPlainText()}),
              (QStringList{u"Update"_s, u"Not now"_s, u"Do not update.  Don't ask me again."_s,
                           u"The latest version Sample App v2.1.0.3 is ready to install now."_s,
                           u"What's new ?"_s, u"Notes."_s}));
}

} // namespace
