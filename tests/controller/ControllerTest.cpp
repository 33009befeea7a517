#include "ControllerTest.h"

#include <QSettings>

ControllerTest::ControllerTest()
{
    startAfresh();
}

ControllerTest::~ControllerTest()
{
    controller.reset();
    runMainQueue();
}

void ControllerTest::startAfresh(const QVariantMap &preferences)
{
    controller = newController();
    runMainQueue();
    host.heard.clear();
    QDir(saveDirectory).removeRecursively();
    QSettings settings;
    settings.clear();
    for (auto preference = preferences.cbegin(); preference != preferences.cend(); ++preference)
        settings.setValue(preference.key(), preference.value());
}

std::shared_ptr<ZVUpdateProc> ControllerTest::newController() const
{
    auto made = std::make_shared<ZVUpdateProc>();
    made->setProductID(QStringLiteral("P"), QStringLiteral("1"), saveDirectory);
    return made;
}

bool ControllerTest::waitForDownload() const
{
    const auto client = controller->mCurrentDownloadUpdateLogic();
    const bool ended = client && waitFor([&] { return client->doCheckDownloadStop(); });
    runMainQueue();
    return ended;
}

void ControllerTest::place(const QString &path, const Content &content) const
{
    QFile::remove(path);
    QDir().mkpath(saveDirectory);
    if (content)
        writeFile(path, *content);
}

Content ControllerTest::contentOf(const QString &path)
{
    return QFile::exists(path) ? Content(readFile(path)) : std::nullopt;
}

QVariantMap ControllerTest::storedPreferences()
{
    // A copy, since what one process has read of a settings file is shared within it.
    const QTemporaryDir elsewhere;
    const QString copy = elsewhere.filePath(QStringLiteral("copy"));
    QFile::copy(QSettings().fileName(), copy);
    const QSettings settings(copy, QSettings::IniFormat);
    QVariantMap values;
    for (const QString &key : settings.allKeys())
        values.insert(key, settings.value(key));
    return values;
}
