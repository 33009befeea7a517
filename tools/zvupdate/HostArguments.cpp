#include "HostArguments.h"

#include "../commands/Arguments.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QDir>

#include <filesystem>
#include <system_error>

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

// A relative path is taken from the current directory. One with ".." is not simplified, which would
// be wrong behind a symbolic link.
QString HostArguments::absoluteDirectory(const Arguments &arguments)
{
    const QString absolute = QDir::current().absoluteFilePath(*arguments.value(u"directory"_s));
    return absolute.contains(u".."_s) ? absolute : QDir::cleanPath(absolute);
}

std::optional<QString> HostArguments::problem(const QString &productID, const QString &directory)
{
    // A relative directory has been made absolute with a name that is not the current one's.
    std::error_code error;
    const QString current = QDir::currentPath();
    if (directory.startsWith(current) &&
        std::filesystem::current_path(error).string() != current.toStdString())
        return u"--directory: the current directory's name is not UTF-8; give an absolute path"_s;
    if (UpdateFiles::named(directory, productID, u"1"_s))
        return std::nullopt;
    return u"--product-id: \"%1\" cannot be part of a file name; give the identifier by which the "
           "service knows the product"_s.arg(productID);
}
