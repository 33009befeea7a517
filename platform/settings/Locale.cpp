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

// As the environment has it, of the variables that say in which language to speak: what Qt calls
// the system's locale is that of numbers. Nor does a locale become another one that Qt has data
// for, en_TW that of en_US.
QString localeIdentifier()
{
#ifdef Q_OS_DARWIN
    return QLocale::system().name();
#else
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QString value = qEnvironmentVariable(variable);
        if (!value.isEmpty())
            return value.section(QLatin1Char('.'), 0, 0).section(QLatin1Char('@'), 0, 0);
    }
    return {};
#endif
}

bool isC(const QLocale &locale)
{
    return locale.language() == QLocale::C || locale.name() == QLatin1String("C");
}

} // namespace

QString currentLocaleIdentifier()
{
    const QString identifier = localeIdentifier();
    const QLocale locale(identifier);
    if (isC(locale))
        return QStringLiteral("en");
    // Of a language without a region Qt knows the usual one, by which it chooses the labels, too.
    return identifier.contains(QLatin1Char('_')) ? identifier : locale.name();
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
