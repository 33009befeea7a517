#include "HostArguments.h"

#include "../commands/Arguments.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QDir>

using namespace Qt::StringLiterals;

CommandOption HostArguments::productID()
{
    return {u"product-id"_s, u"ID"_s, u"The product's identifier at the update service."_s, true};
}

CommandOption HostArguments::productVersion()
{
    return {u"product-version"_s, u"VERSION"_s, u"The version that is installed."_s, true};
}

CommandOption HostArguments::directory()
{
    return {u"directory"_s, u"DIR"_s,
            u"Where update files are kept. A check creates it when it is missing."_s, true};
}

// One with ".." is not simplified, which would be wrong behind a symbolic link.
QString HostArguments::absoluteDirectory(const Arguments &arguments)
{
    QString error;
    const QString absolute = arguments.absolutePath(u"directory"_s, &error).value_or(QString());
    return absolute.contains(u".."_s) ? absolute : QDir::cleanPath(absolute);
}

std::optional<QString> HostArguments::problem(const Arguments &arguments)
{
    QString error;
    const auto directory = arguments.absolutePath(u"directory"_s, &error);
    if (!directory)
        return error;
    const QString productID = *arguments.value(u"product-id"_s);
    if (UpdateFiles::named(*directory, productID, u"1"_s))
        return std::nullopt;
    return u"--product-id: \"%1\" cannot be part of a file name; give the identifier by which the "
           "service knows the product"_s.arg(productID);
}
