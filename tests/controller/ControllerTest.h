#pragma once

#include "../support/DownloadModes.h"
#include "../support/Testing.h"
#include "Host.h"
#include "UpdateService.h"

#include <QVariantMap>

#include <memory>

using Content = std::optional<QByteArray>;

/// A configured controller with a host, an update service, a save directory that does not exist
/// yet, and no preferences.
class ControllerTest : public testing::Test
{
public:
    ControllerTest();
    ~ControllerTest() override;

    /// No save directory, no preferences but these, nothing heard, another controller.
    void startAfresh(const QVariantMap &preferences = {});
    std::shared_ptr<ZVUpdateProc> newController() const;
    int64_t check() { return controller->updateWithDelegate(&host); }
    bool waitForDownload() const;
    /// Lets the main queue run what is waiting there.
    static void runMainQueue() { QCoreApplication::processEvents(); }

    /// The path of a file in the save directory.
    QString saved(const QString &name) const { return saveDirectory + QLatin1Char('/') + name; }
    /// Sees to it that a file has this content or does not exist.
    void place(const QString &path, const Content &content) const;
    static Content contentOf(const QString &path);
    /// The preferences as another process would read them now.
    static QVariantMap storedPreferences();

    QTemporaryDir root;
    const QString saveDirectory = root.filePath(QStringLiteral("above/save"));
    const QString diskImage = saved(QStringLiteral("P_2.dmg"));
    const QString temporary = saved(QStringLiteral("P_2.bin"));
    const QByteArray good = Offer::installer();
    const QByteArray wrong = Offer::installer('w');
    const QString digest = Offer::digestOf(good);
    const QString digestKey = QStringLiteral("ZVLAST_DOWNLOAD_MD5");
    UpdateService service;
    Host host;
    std::shared_ptr<ZVUpdateProc> controller;
};
