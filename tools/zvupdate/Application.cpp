#include "Application.h"

#include "../commands/Arguments.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

CommandOption Application::option()
{
    return {u"application"_s, u"ORGANIZATION/NAME"_s,
            u"Whose preferences are meant: the names that the application gives Qt as its "
            "organization's and its own. The default is this program's own preferences."_s};
}

std::optional<QString> Application::choose(const Arguments &arguments)
{
    const QString text = arguments.value(u"application"_s).value_or(u"ZVUpdate/zvupdate"_s);
    const QStringList names = text.split(u'/');
    // They name a folder and a file in it.
    if (names.size() != 2 || names.contains(QString()) || names.contains(u"."_s) ||
        names.contains(u".."_s))
        return u"--application: \"%1\" is not a name; give ORGANIZATION/NAME"_s.arg(text);
    QCoreApplication::setOrganizationName(names.first());
    QCoreApplication::setApplicationName(names.last());
    return std::nullopt;
}
