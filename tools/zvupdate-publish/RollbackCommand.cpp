#include "CatalogueOption.h"
#include "Commands.h"
#include "SiteFolder.h"

#include "../commands/Arguments.h"
#include "../commands/Console.h"
#include "../commands/JsonLine.h"

#include <limits>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

Outcome rollback(const Arguments &arguments, Console &console)
{
    const auto output = arguments.absolutePath(u"output"_s);
    if (!output)
        return wrongArguments(output.error());
    const auto wanted = arguments.number(u"generation"_s, 1, 1, std::numeric_limits<int>::max());
    if (!wanted)
        return wrongArguments(wanted.error());
    const bool isDryRun = arguments.isSet(u"dry-run"_s);
    const auto lock = isDryRun ? std::unique_ptr<QLockFile>() : CatalogueOption::lock(*output);
    if (!lock)
        return Failure{lock.error()};

    SiteFolder folder(*output);
    const int current = folder.currentGeneration();
    const bool isNamed = arguments.isSet(u"generation"_s);
    const auto generation = folder.goBack(isNamed ? std::optional(*wanted) : std::nullopt,
                                          arguments.isSet(u"allow-unsigned"_s), isDryRun);
    if (!generation)
        return Failure{generation.error()};

    if (arguments.isSet(u"json"_s)) {
        console.print(jsonLine(
            {{u"generation"_s, *generation}, {u"before"_s, current}, {u"dryRun"_s, isDryRun}}));
        return Success;
    }
    console.say((isDryRun ? u"The site would be generation %1 again; it is %2"_s
                          : u"The site is generation %1 again; it was %2"_s)
                    .arg(*generation)
                    .arg(current));
    if (isDryRun)
        return Success;
    console.say(u"Now: nginx -t && nginx -s reload"_s);
    console.say(u"The catalogue is as it was: take back there what is wrong, or the next site has "
                "it again."_s);
    return Success;
}

} // namespace

Command rollbackCommand()
{
    return {
        .name = u"rollback"_s,
        .summary = u"Puts an earlier static site in the place of the current one"_s,
        .details =
            {u"At once and whole, as \"site\" puts a new one there; nothing is made anew. The "
             "server then has to read its configuration again. The sites that \"site\" has "
             "kept can be gone back to, and forth."_s},
        .options = {{.name = u"output"_s,
                     .valueName = u"DIR"_s,
                     .help = u"The folder of the site."_s,
                     .isRequired = true},
                    {.name = u"generation"_s,
                     .valueName = u"N"_s,
                     .help = u"Which one; the one before the current when left out."_s},
                    {.name = u"allow-unsigned"_s,
                     .help = u"Also takes a site whose announcements builds with release keys will "
                             "refuse: because they are not signed as those demand it, or have "
                             "expired."_s},
                    CatalogueOption::dryRun(),
                    CatalogueOption::json()},
        .exitStatuses = {u"0 put in place, 1 refused, and the current site goes on, 2 wrong "
                         "arguments."_s},
        .examples = {u"rollback --output /srv/updates"_s},
        .run = rollback,
    };
}
