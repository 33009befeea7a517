#include "LanguageSelection.h"

#include "../service/LanguageCodes.h"

// The region decides, not the script: notes for China are wanted in China, whatever the script.
QString languageCodeForLocale(const QString &identifier)
{
    if (identifier.endsWith(QLatin1String("CN")))
        return QString::fromUtf8(kZVLanguageCode_zh_CN);
    if (identifier.endsWith(QLatin1String("TW")))
        return QString::fromUtf8(kZVLanguageCode_zh_TW);
    return QString::fromUtf8(kZVLanguageCode_EN);
}
