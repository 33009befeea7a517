#include "HostOptions.h"

#include "../commands/Arguments.h"
#include "../commands/ReleaseKeyFiles.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QDir>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

QList<CommandOption> HostOptions::with(const QList<CommandOption> &further)
{
    const QList<CommandOption> host = {
        {u"product-id"_s, u"ID"_s, u"The product's identifier at the update service."_s, true},
        {u"product-version"_s, u"VERSION"_s, u"The version that is installed."_s, true},
        {u"directory"_s, u"DIR"_s,
         u"Where update files are kept. A check creates it when it is missing."_s, true},
        {u"release-key"_s, u"FILE"_s,
         u"A public key of the maker's, of signify, minisign or openssl. Then only what is signed "
         "is taken; where there are several, up to eight, under one of them."_s}};
    return host + further + QList{application()};
}

CommandOption HostOptions::application()
{
    return {u"application"_s, u"ORGANIZATION/NAME"_s,
            u"Whose preferences are meant: the names that the application gives Qt as its "
            "organization's and its own. The default is this program's own preferences."_s};
}

Result<HostOptions> HostOptions::read(const Arguments &arguments)
{
    const auto directory = arguments.absolutePath(u"directory"_s);
    if (!directory)
        return Failure{directory.error()};
    const QString productID = *arguments.value(u"product-id"_s);
    if (!UpdateFiles::named(*directory, productID, u"1"_s))
        return Failure{u"--product-id: \"%1\" cannot be part of a file name; give the identifier "
                       "by which the service knows the product"_s.arg(productID)};
    const auto keys = readReleaseKeyFiles(arguments.values(u"release-key"_s));
    if (!keys)
        return Failure{keys.error()};
    if (const auto chosen = chooseApplication(arguments); !chosen)
        return Failure{chosen.error()};
    // One with ".." is not simplified, which would be wrong behind a symbolic link.
    return HostOptions{productID, *arguments.value(u"product-version"_s),
                       directory->contains(u".."_s) ? *directory : QDir::cleanPath(*directory),
                       *keys};
}

Result<void> HostOptions::chooseApplication(const Arguments &arguments)
{
    const QString text = arguments.value(u"application"_s).value_or(u"ZVUpdate/zvupdate"_s);
    const QStringList names = text.split(u'/');
    // They name a folder and a file in it.
    if (names.size() != 2 || names.contains(QString()) || names.contains(u"."_s) ||
        names.contains(u".."_s))
        return Failure{u"--application: \"%1\" is not a name; give ORGANIZATION/NAME"_s.arg(text)};
    QCoreApplication::setOrganizationName(names.first());
    QCoreApplication::setApplicationName(names.last());
    return {};
}
