#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTextEdit>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

void reportUnless(bool isRight, const QString &what)
{
    if (!isRight)
        std::puts(qPrintable(what));
}

// A control lies inside window and screen, and no label is cut.
void lookAt(UpdateInfoWindowController &shown, const QString &where)
{
    QDialog *window = shown.window();
    const QRect screen = window->screen()->availableGeometry();
    reportUnless(screen.contains(window->geometry()), where + u": outside the screen"_s);
    const QList<QWidget *> controls = {
        shown.updateTitleTextField(), shown.updateInfoTextField(), shown.updateInfoTitleTextField(),
        shown.dontReminedMe(),        shown.notNowButton(),        shown.updateButton()};
    for (const QWidget *control : controls) {
        const QRect place(control->mapTo(window, QPoint()), control->size());
        const bool mayShrink = qobject_cast<const QTextEdit *>(control);
        const QSize needed = mayShrink ? control->minimumSizeHint()
                             : control->hasHeightForWidth()
                                 ? QSize(0, control->heightForWidth(control->width()))
                                 : control->sizeHint();
        reportUnless(window->rect().contains(place) && control->isVisible(),
                     where + u": outside the window: "_s + control->objectName());
        reportUnless(place.width() >= needed.width() && place.height() >= needed.height() &&
                         control->toolTip().isEmpty(),
                     where + u": cut off: "_s + control->objectName());
    }
}

// Prints what does not fit with fonts of several sizes, light and dark.
void tryFonts(ZVUpdateProc &updater)
{
    for (const bool isDark : {false, true}) {
        if (isDark)
            QApplication::setPalette(QPalette(QColor(0x30, 0x30, 0x30)));
        for (const int size : {10, 14, 22}) {
            QFont font = QApplication::font();
            font.setPointSize(size);
            QApplication::setFont(font);
            updater.setMUpdateInfoWindowCtrl(nullptr);
            const bool isActive = QApplication::applicationState() == Qt::ApplicationActive;
            updater.showDefaultUpdateWindowWithProductName(u"Sample App"_s);
            UpdateInfoWindowController &shown = *updater.mUpdateInfoWindowCtrl();
            QCoreApplication::processEvents();
            const QString name = QString::number(size) + (isDark ? u"-dark"_s : u"-light"_s);
            lookAt(shown, name);
            // The first one comes while another application is active, or none.
            reportUnless(shown.window()->testAttribute(Qt::WA_ShowWithoutActivating) != isActive,
                         name + u": takes the keyboard"_s);
        }
    }
}

} // namespace

/// window_host core|gui|widgets DIRECTORY: shows the window for the version 2103 of P1 in an
/// application of that kind, and prints what the call has answered and what the window says.
///
/// window_host fit DIRECTORY: prints what is wrong with the window's looks.
int main(int argc, char **argv)
{
    const QByteArray kind = argv[1];
    std::unique_ptr<QCoreApplication> application;
    if (kind == "core")
        application = std::make_unique<QCoreApplication>(argc, argv);
    else if (kind == "gui")
        application = std::make_unique<QGuiApplication>(argc, argv);
    else
        application = std::make_unique<QApplication>(argc, argv);

    const auto response = std::make_shared<CheckUpdateResponse>();
    response->setOk(true);
    response->setZVUpdateVersion(u"2103"_s);
    response->setMUpdateMsgDict(
        {{{u"en"_s, u"notes"_s}, {u"zh-TW"_s, u"notes TW"_s}, {u"zh-CN"_s, u"notes CN"_s}}});
    const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
    updater->setProductID(u"P1"_s, u"2100"_s, QFile::decodeName(argv[2]));
    updater->setMLastCheckUpdateResponse(response);
    if (kind == "fit") {
        tryFonts(*updater);
        return 0;
    }
    const auto result = updater->showDefaultUpdateWindowWithProductName(u"Sample App"_s);

    QStringList lines = {QString::number(result)};
    const auto shown = updater->mUpdateInfoWindowCtrl();
    if (shown && shown->window())
        lines << shown->window()->windowTitle() << shown->updateTitleTextField()->text()
              << shown->updateInfoTitleTextField()->text()
              << shown->updateInfoTextField()->toPlainText() << shown->dontReminedMe()->text()
              << shown->notNowButton()->text() << shown->updateButton()->text();
    std::fputs(lines.join(u'\n').toUtf8().constData(), stdout);
    return 0; // The shared controller outlives the application, as in hosts that forget it.
}
