#include "../platform/files/Files.h"
#include "../ui/UpdateInfoWindowController.h"
#include "UpdateFiles.h"
#include "ZVUpdateProc.h"

using ZVPlatform::Files;

namespace {

// The service sends versions as bare digits: "2103" is shown as "v2.1.0.3".
QString displayVersion(const QString &version)
{
    QString display = QStringLiteral("v");
    for (qsizetype index = 0; index < version.size(); ++index) {
        if (index > 0)
            display += QLatin1Char('.');
        display += version.at(index);
    }
    return display;
}

} // namespace

int64_t ZVUpdateProc::showDefaultUpdateWindowWithProductName(const QString &productName)
{
    const auto response = mLastCheckUpdateResponse();
    if (!response || !response->ok() || !accepts(*response))
        return ZVNoUpdate;
    const auto former = mUpdateInfoWindowCtrl();
    setMUpdateInfoWindowCtrl(nullptr);

    const auto directory = mSaveFileDirectory();
    const auto productID = mProductID();
    const auto version = response->ZVUpdateVersion();
    if (!directory || !productID || !version)
        return ZVInstallerMissing;
    const auto files = UpdateFiles::named(*directory, *productID, *version);
    if (!files || !Files::exists(files->diskImagePath))
        return ZVInstallerMissing;

    const auto window =
        std::make_shared<UpdateInfoWindowController>(QStringLiteral("UpdateInfoWindowController"));
    setMUpdateInfoWindowCtrl(window);
    window->setMProductName(productName);
    window->setDelegate(this);
    window->setMUpdateProductVersion(displayVersion(*version));
    window->setMUpdateFilePath(files->diskImagePath);
    if (response->release())
        window->setFileCheck(
            [response](const QString &path) { return response->announces(path).value_or(false); });
    window->setMUpdateInfo(getUpdateMessageWithLang(getDefaultLangID()));
    window->reloadWindow();
    if (former)
        window->takePlaceOf(*former);
    window->showWindow();
    return ZVWindowShown;
}
