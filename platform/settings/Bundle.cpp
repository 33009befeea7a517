#include "Bundle.h"

#include <QDir>
#include <QFileInfo>
#include <QTranslator>

// In a static build nothing else would make the linker take the resources along. A namespace is no
// place for this macro.
static void initialiseResources()
{
    Q_INIT_RESOURCE(ZVUpdate);
}

namespace ZVPlatform {

namespace {

constexpr QLatin1String localizationSuffix(".lproj");

} // namespace

Bundle Bundle::framework()
{
    initialiseResources();
    return Bundle(QStringLiteral(":/ZVUpdate"));
}

QStringList Bundle::localizations() const
{
    QStringList languages;
    const QStringList folders =
        QDir(path_).entryList({QLatin1Char('*') + localizationSuffix}, QDir::Dirs);
    for (const QString &folder : folders)
        languages.append(folder.chopped(localizationSuffix.size()));
    return languages;
}

std::optional<QString> Bundle::pathForResource(const QString &name, const QString &type) const
{
    const QString path = path_ + QLatin1Char('/') + name + QLatin1Char('.') + type;
    if (!QFileInfo::exists(path))
        return std::nullopt;
    return path;
}

QString Bundle::localizedString(const QString &key, const std::optional<QString> &table) const
{
    const QString name = table.value_or(QStringLiteral("Localizable"));
    const auto path = pathForResource(name, QStringLiteral("qm"));
    QTranslator translator; // Never installed: the host's own texts are none of its business.
    if (!path || !translator.load(*path))
        return key;
    const QString text = translator.translate(name.toUtf8().constData(), key.toUtf8().constData());
    return text.isEmpty() ? key : text;
}

} // namespace ZVPlatform
