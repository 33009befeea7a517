#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

/// window_host core|gui|widgets DIRECTORY: shows the window for the version 2103 of P1 in an
/// application of that kind, and prints what the call has answered and what the window says.
int main(int argc, char **argv)
{
    const QByteArray kind = argc == 3 ? argv[1] : "";
    std::unique_ptr<QCoreApplication> application;
    if (kind == "core")
        application = std::make_unique<QCoreApplication>(argc, argv);
    else if (kind == "gui")
        application = std::make_unique<QGuiApplication>(argc, argv);
    else if (kind == "widgets")
        application = std::make_unique<QApplication>(argc, argv);
    else
        return 2;

    const auto response = std::make_shared<CheckUpdateResponse>();
    response->setOk(true);
    response->setZVUpdateVersion(u"2103"_s);
    response->setMUpdateMsgDict(
        {{{u"en"_s, u"notes"_s}, {u"zh-TW"_s, u"notes TW"_s}, {u"zh-CN"_s, u"notes CN"_s}}});
    const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
    updater->setProductID(u"P1"_s, u"2100"_s, QFile::decodeName(argv[2]));
    updater->setMLastCheckUpdateResponse(response);
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
