#include "UpdateOutcome.h"

#include <iterator>

namespace {

struct Entry
{
    const char *word;
    const char *message;
};

// The one list of outcomes, in the order of their enumeration.
constexpr Entry entries[] = {
    {"download-started", "The download of a newer version has started."},
    {"installer-ready", "A newer version is ready to be installed."},
    {"nothing-newer", "There is nothing newer."},
    {"switched-off", "Automatic updating is switched off."},
    {"not-yet", "It is not yet time for a check."},
    {"not-configured", "Product identifier, version or directory is missing."},
    {"service-unreachable", "The update service cannot be reached."},
    {"proxy-refused", "The proxy refused to connect to the update service."},
    {"certificate-refused", "The certificate of the update service cannot be trusted."},
    {"not-a-service", "The reply is not that of an update service."},
    {"no-token", "The service hands out no download token."},
    {"unsafe-name", "The service offers a version that cannot be part of a file name."},
    {"directory-not-writable", "The directory for update files cannot be written to."},
    {"disk-full", "There is not enough room for the download."},
    {"http-status", "The server answered with an error."},
    {"broken-off", "The connection was lost before the reply was complete."},
    {"wrong-digest", "The file received does not have the digest announced, and was discarded."},
    {"stopped", "The update was stopped."},
    {"not-signed", "The offer is not signed by the maker."},
    {"other-product", "The offer is the maker's, but for another product."},
    {"not-newer", "The offer is the maker's, but no newer than what is running."},
    {"expired", "The maker's signature of the offer has run out."},
    {"wrong-size", "The service's file does not have the size that the maker has signed."},
};
static_assert(std::size(entries) == static_cast<size_t>(UpdateOutcome::Kind::WrongSize) + 1);

const Entry &entryOf(UpdateOutcome::Kind kind)
{
    return entries[static_cast<size_t>(kind)];
}

} // namespace

UpdateOutcome::UpdateOutcome(Kind what)
    : UpdateOutcome(what, QString::fromLatin1(entryOf(what).message))
{
}

bool UpdateOutcome::mayBeLoginPage() const
{
    return httpStatus == loginRequired || contentType.startsWith(u"text/html", Qt::CaseInsensitive);
}

QString UpdateOutcome::word(Kind kind)
{
    return QString::fromLatin1(entryOf(kind).word);
}
