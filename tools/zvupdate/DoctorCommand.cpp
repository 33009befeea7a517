#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"
#include "Commands.h"
#include "Doctor.h"
#include "HostOptions.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

constexpr qsizetype columnOfMessages = 27;

void tellPrograms(const Finding &finding, Console &console)
{
    const QJsonValue null(QJsonValue::Null);
    console.print(jsonLine({{u"event"_s, u"finding"_s},
                            {u"name"_s, finding.name},
                            {u"ok"_s, !finding.remedy},
                            {u"message"_s, finding.message},
                            {u"remedy"_s, finding.remedy ? QJsonValue(*finding.remedy) : null}}));
}

void tellPeople(const Finding &finding, Console &console)
{
    const QString start = (finding.remedy ? u"WRONG  "_s : u"ok     "_s) + finding.name;
    console.say(start.leftJustified(columnOfMessages) + finding.message +
                (finding.remedy ? u' ' + *finding.remedy : QString()));
}

Outcome doctor(const Arguments &arguments, Console &console)
{
    const auto host = HostOptions::read(arguments);
    if (!host)
        return wrongArguments(host.error());
    const QFileInfo program(arguments.value(u"program"_s).value_or(QString()));
    if (arguments.isSet(u"program"_s) && !program.exists())
        return wrongArguments(
            u"--program: %1 is not there; give the host's program"_s.arg(program.filePath()));
    QLoggingCategory::setFilterRules(u"zvupdate=false"_s); // The findings say it.
    const auto tell = arguments.isSet(u"json"_s) ? tellPrograms : tellPeople;
    const QString programPath =
        arguments.isSet(u"program"_s) ? program.absoluteFilePath() : QString();
    static char name[] = "zvupdate";
    static char *names[] = {name, nullptr};
    int count = 1;
    const QCoreApplication application(count, names); // It knows where the running program is.
    Doctor doctor(*host, programPath, [&](const Finding &finding) { tell(finding, console); });
    return doctor.examine() ? Success : Failed;
}

} // namespace

Command doctorCommand()
{
    return {
        .name = u"doctor"_s,
        .summary = u"Looks whether updates can work, and says what to do if not"_s,
        .details =
            {u"Give what the host gives the library, and the host's own name as --application. "
             "Looks at the clock, the preferences, the directory, what is in it and the room "
             "there, and asks the update service what a check asks. Nothing is changed, and no "
             "installer downloaded."_s,
             u"With --json, standard output is one JSON object a line:\n"
             "{\"event\":\"finding\",\"name\":TEXT,\"ok\":true|false,\"message\":TEXT,"
             "\"remedy\":TEXT|null}"_s},
        .options = HostOptions::with(
            {{u"program"_s, u"FILE"_s,
              u"The host's program, to hear whether updates are its own business."_s},
             {u"json"_s, {}, u"Tells programs, rather than people, what is found."_s}}),
        .exitStatuses = {u"0 all is well, 1 something is wrong, 2 wrong arguments."_s},
        .examples = {u"doctor --product-id P1 --product-version 2100 --directory updates"_s,
                     u"doctor --product-id P1 --product-version 2100 --directory updates "
                     "--application Example/Player"_s},
        .run = doctor,
    };
}
