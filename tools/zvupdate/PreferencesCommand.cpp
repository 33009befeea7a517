#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "Commands.h"
#include "HostOptions.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

const QString unset = u"unset"_s;

// A date and time; one without a zone is in UTC, as are those that are shown.
std::optional<QDateTime> parsedDate(const QString &text)
{
    QDateTime date = QDateTime::fromString(text, Qt::ISODate);
    if (!date.isValid())
        return std::nullopt;
    if (date.timeSpec() == Qt::LocalTime)
        date.setTimeSpec(Qt::UTC);
    return date.toUTC();
}

QString shownDate(const QDateTime &date)
{
    return date.toUTC().toString(Qt::ISODate);
}

void showToPrograms(Console &console)
{
    const auto automatic = UpdatePreferences::automaticUpdating();
    const auto nextCheck = UpdatePreferences::nextCheckDate();
    const auto digest = UpdatePreferences::lastDownloadDigest();
    const QJsonValue null(QJsonValue::Null);
    console.print(jsonLine(
        {{QString::fromUtf8(kZVAutoUpdateOnOffKey), automatic ? QJsonValue(*automatic) : null},
         {u"CorvantaAutoUpdateNextCheckDate"_s,
          nextCheck ? QJsonValue(shownDate(*nextCheck)) : null},
         {u"ZVLAST_DOWNLOAD_MD5"_s, digest ? QJsonValue(*digest) : null}}));
}

void showToPeople(Console &console)
{
    const auto automatic = UpdatePreferences::automaticUpdating();
    const auto nextCheck = UpdatePreferences::nextCheckDate();
    const auto digest = UpdatePreferences::lastDownloadDigest();
    console.say(u"Automatic updating:    "_s +
                (automatic ? (*automatic ? u"on"_s : u"off"_s) : unset));
    console.say(u"Next check not before: "_s + (nextCheck ? shownDate(*nextCheck) : unset));
    console.say(u"Last download's MD5:   "_s + digest.value_or(unset));
}

Outcome preferences(const Arguments &arguments, Console &console)
{
    if (const auto chosen = HostOptions::chooseApplication(arguments); !chosen)
        return wrongArguments(chosen.error());
    const auto automatic = arguments.value(u"automatic-updating"_s);
    const auto nextCheck = arguments.value(u"next-check"_s);
    const auto date = nextCheck ? parsedDate(*nextCheck) : std::nullopt;
    if (nextCheck && !date && nextCheck != unset)
        return wrongArguments(u"--next-check: \"%1\" is not a date; give one such as "
                              "2030-01-31T12:00:00Z, or unset"_s.arg(*nextCheck));

    if (automatic)
        UpdatePreferences::setAutomaticUpdating(
            *automatic == unset ? std::nullopt : std::optional(*automatic == u"on"_s));
    if (nextCheck)
        UpdatePreferences::setNextCheckDate(date);
    if (!UpdatePreferences::synchronise()) {
        const QString path = UpdatePreferences::path();
        return Failure{path.isEmpty() ? u"HOME names no directory to keep them in; set it"_s
                                      : u"%1 cannot be read or written; make it, its folder and "
                                        "%1.lock accessible"_s.arg(path)};
    }

    if (arguments.isSet(u"json"_s))
        showToPrograms(console);
    else
        showToPeople(console);
    return Success;
}

} // namespace

Command preferencesCommand()
{
    return {
        .name = u"preferences"_s,
        .summary = u"Shows and sets what is kept between checks"_s,
        .details =
            {u"A user who once chose \"Don't ask me again.\" gets updates back with "
             "--automatic-updating on."_s,
             u"The date of the next check holds checks back only while automatic updating has "
             "never been set."_s},
        .options =
            {{u"automatic-updating"_s,
              u"on|off|unset"_s,
              u"Switches automatic updating on or off, or forgets the choice."_s,
              false,
              {u"on"_s, u"off"_s, unset}},
             {u"next-check"_s, u"ISO-DATE|unset"_s,
              u"Sets or forgets the date before which no check is made. Without a zone it is in "
              "UTC."_s},
             {u"json"_s,
              {},
              u"Shows one JSON object with the keys under which the values are kept; dates are in "
              "UTC, absent values null."_s},
             HostOptions::application()},
        .exitStatuses = {u"0 done, 1 the preferences cannot be read or written, 2 wrong "
                         "arguments."_s},
        .examples = {u"preferences"_s, u"preferences --automatic-updating on"_s,
                     u"preferences --next-check 2030-01-31T12:00:00Z --json"_s,
                     u"preferences --application Example/Player --automatic-updating unset"_s},
        .run = preferences,
    };
}
