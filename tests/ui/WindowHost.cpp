#include <ZVUpdate/ZVUpdate.h>
#include <ZVUpdate/ui/UpdateInfoWindowController.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <cstdio>

namespace {

QJsonObject textsOf(UpdateInfoWindowController &controller)
{
    return {{QStringLiteral("title"), controller.window()->windowTitle()},
            {QStringLiteral("headline"), controller.updateTitleTextField()->text()},
            {QStringLiteral("heading"), controller.updateInfoTitleTextField()->text()},
            {QStringLiteral("notes"), controller.updateInfoTextField()->toPlainText()},
            {QStringLiteral("checkBox"), controller.dontReminedMe()->text()},
            {QStringLiteral("notNow"), controller.notNowButton()->text()},
            {QStringLiteral("update"), controller.updateButton()->text()}};
}

std::unique_ptr<QCoreApplication> makeApplication(const QByteArray &kind, int &argc, char **argv)
{
    if (kind == "core")
        return std::make_unique<QCoreApplication>(argc, argv);
    if (kind == "gui")
        return std::make_unique<QGuiApplication>(argc, argv);
    return std::make_unique<QApplication>(argc, argv);
}

} // namespace

/// window_host core|gui|widgets DIRECTORY: shows the window for the version 2103 of P1 in an
/// application of that kind, and prints what the call has answered and what the window says.
int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    const auto application = makeApplication(argv[1], argc, argv);
    const auto response = std::make_shared<CheckUpdateResponse>();
    response->setOk(true);
    response->setZVUpdateVersion(QStringLiteral("2103"));
    response->setMUpdateMsgDict({{{QStringLiteral("en"), QStringLiteral("notes in English")},
                                  {QStringLiteral("zh-TW"), QStringLiteral("notes for Taiwan")},
                                  {QStringLiteral("zh-CN"), QStringLiteral("notes for China")}}});

    const auto updater = ZVUpdateProc::getSharedZVUpdateProc();
    updater->setProductID(QStringLiteral("P1"), QStringLiteral("2100"), QFile::decodeName(argv[2]));
    updater->setMLastCheckUpdateResponse(response);
    const int64_t result =
        updater->showDefaultUpdateWindowWithProductName(QStringLiteral("Sample App"));

    const auto controller = updater->mUpdateInfoWindowCtrl();
    QJsonObject report;
    if (controller && controller->window())
        report = textsOf(*controller);
    report[QStringLiteral("result")] = static_cast<int>(result);
    std::puts(QJsonDocument(report).toJson(QJsonDocument::Compact).constData());
    return 0; // The shared controller outlives the application, as in hosts that forget it.
}
