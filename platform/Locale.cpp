#include "Locale.h"

#include <QLocale>

namespace ZVPlatform {

namespace {

void appendOnce(QStringList &list, const QString &text)
{
    if (!text.isEmpty() && !list.contains(text))
        list.append(text);
}

// From "zh-TW": zh-TW, then zh-Hant-TW and zh-Hant (the script that goes without saying), then zh.
void appendWithShorterForms(QStringList &languages, const QString &language)
{
    appendOnce(languages, language);
    const QLocale locale(language);
    const QString code = QLocale::languageToCode(locale.language());
    const QString script = QLocale::scriptToCode(locale.script());
    const QString territory = QLocale::territoryToCode(locale.territory());
    const QString dash = QStringLiteral("-");
    if (!script.isEmpty() && !territory.isEmpty())
        appendOnce(languages, code + dash + script + dash + territory);
    if (!script.isEmpty())
        appendOnce(languages, code + dash + script);
    appendOnce(languages, code);
}

// Qt puts a locale that it has data for in the place of one that it has none for, en_US in that of
// en_TW, and the region is lost. Empty where the locale does not come from the environment.
QString identifierFromEnvironment()
{
#ifndef Q_OS_DARWIN
    for (const char *variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) { // As Qt looks for it.
        const QString value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            return value.section(QLatin1Char('.'), 0, 0).section(QLatin1Char('@'), 0, 0);
    }
#endif
    return {};
}

bool isC(const QLocale &locale)
{
    return locale.language() == QLocale::C || locale.name() == QLatin1String("C");
}

} // namespace

QString currentLocaleIdentifier()
{
    const QLocale locale = QLocale::system();
    const QString asGiven = identifierFromEnvironment();
    // With LANGUAGE set, Qt takes the language from there, and only the name tells C.
    if (isC(locale) || asGiven == QLatin1String("C") || asGiven == QLatin1String("POSIX"))
        return QStringLiteral("en");
    return asGiven.isEmpty() ? locale.name() : asGiven;
}

QStringList preferredLanguages()
{
    QStringList languages;
    bool hasC = false;
    const QStringList preferred = QLocale::system().uiLanguages();
    for (const QString &language : preferred) {
        if (language == QLatin1String("C") || language == QLatin1String("POSIX"))
            hasC = true;
        else if (isC(QLocale(language)))
            appendOnce(languages, language);
        else
            appendWithShorterForms(languages, language);
    }
    // Qt names C also behind each language that it has no data for, so it says nothing of the
    // order.
    if (hasC)
        appendOnce(languages, QStringLiteral("en"));
    return languages;
}

} // namespace ZVPlatform
