#include "NginxConfig.h"

#include <algorithm>
#include <bit>

using namespace Qt::StringLiterals;

namespace {

// nginx keeps a map's keys in buckets of limited size and numbers. Both are generous, as only what
// is used takes memory.
constexpr quint64 keysInBucket = 16;
constexpr quint64 leastBuckets = 2048;

constexpr auto hashText =
    R"(# Made by "zvupdate-publish site"; changes are lost when it is made anew. See nginx.conf beside it.
#
# By the number and the length of the commands. nginx takes each of the two once, and before the
# first map: where your configuration has them, leave this file out and give yours at least these
# numbers.
map_hash_max_size %BUCKETS%;
map_hash_bucket_size %BUCKETSIZE%;
)";

constexpr auto mapsText =
    R"(# Made by "zvupdate-publish site"; changes are lost when it is made anew.
#
# To be included inside http {}, and locations.conf beside it inside the server {} that clients
# ask:
#
#     http {
#         sendfile on;
#         tcp_nopush on;
#         include "%ROOT%/current/hash.conf";     # before every other map
#         include "%ROOT%/current/nginx.conf";
#         server {
#             listen 80;                      # or 443 ssl, with ssl_certificate and its key
#             server_name updates.example.com;
#             include "%ROOT%/current/locations.conf";
#         }
#     }
#
# After each "zvupdate-publish site": nginx -t && nginx -s reload. Until then nginx goes on serving
# the site before, whole. Leave worker_shutdown_timeout unset: downloads from the old site then end
# in their own time.

# A limit for each address that asks, to be copied into your own http {} and server {}. It also meets
# everybody behind an office's or a provider's one address, so think of them before.
#     http {   limit_req_zone $binary_remote_addr zone=zvupdate:10m rate=10r/s;
#     server { limit_req zone=zvupdate burst=20 nodelay;

# What is asked with POST: a check for each product and outdated version, and the token. Maps take no
# notice of upper and lower case, as the protocol demands.
map $arg_%KEY% $zvupdate_reply {
    default %DEFAULT%;
%REPLIES%}

# What is asked with HEAD and GET: each installer.
map $arg_%KEY% $zvupdate_installer {
    default "";
%DOWNLOADS%}
)";

constexpr auto locationsText =
    R"(# Made by "zvupdate-publish site"; changes are lost when it is made anew. See nginx.conf beside it.

location = %PATH% {
    # nginx serves files to GET and HEAD only. A POST is therefore refused, and the page for that
    # error, with a better status, is the reply. A body of the POST is passed over.
    error_page 405 =200 $zvupdate_reply;
    if ($request_method = POST) {
        return 405;
    }

    # Clients take the length of any page for the installer's, so this page has none; it is the
    # empty variable, since for an empty text nginx puts a page of its own.
    if ($zvupdate_installer = "") {
        return 404 $zvupdate_installer;
    }
%DOWNLOAD%}

# Replies change when a release is published or withdrawn, which is to be known soon.
location /replies/ {
    internal;
    root "%ROOT%";
    types {}
    default_type application/json;
    gzip off;
    add_header Cache-Control "public, max-age=60";

    # Read, since for so few bytes that is cheaper. The files never change, so they are kept open.
    sendfile off;
    open_file_cache max=10000 inactive=60s;
    open_file_cache_valid 60s;
}

# An installer never changes under its name, and neither does what its download command stands for.
location /installers/ {
    %INTERNAL%
    root "%ROOT%";
    types {}
    default_type application/octet-stream;
    gzip off;
    add_header Cache-Control "public, max-age=31536000, immutable";
    open_file_cache max=1000 inactive=60s;
    open_file_cache_valid 60s;
}
)";

QString lines(const QMap<QString, QString> &map)
{
    QString text;
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        text += u"    "_s + entry.key() + u' ' + entry.value() + u";\n"_s;
    return text;
}

quint64 longest(const QMap<QString, QString> &map)
{
    qsizetype length = 0;
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        length = std::max(length, entry.key().size());
    return static_cast<quint64>(length);
}

} // namespace

QByteArray NginxConfig::hash(const SiteContents &site)
{
    const auto keys = static_cast<quint64>(std::max(site.replies.size(), site.downloads.size()));
    const quint64 length = std::max(longest(site.replies), longest(site.downloads));
    // A key takes its length and some 24 bytes.
    const quint64 bucketSize = std::bit_ceil(keysInBucket * (length + 24));
    QString text = QString::fromUtf8(hashText);
    text.replace(u"%BUCKETS%"_s, QString::number(std::bit_ceil(std::max(leastBuckets, 2 * keys))));
    text.replace(u"%BUCKETSIZE%"_s, QString::number(bucketSize));
    return text.toUtf8();
}

QByteArray NginxConfig::maps(const SiteContents &site) const
{
    QString text = QString::fromUtf8(mapsText);
    text.replace(u"%ROOT%"_s, root);
    text.replace(u"%KEY%"_s, queryKey);
    text.replace(u"%DEFAULT%"_s, site.defaultReply);
    text.replace(u"%REPLIES%"_s, lines(site.replies));
    text.replace(u"%DOWNLOADS%"_s, lines(site.downloads));
    return text.toUtf8();
}

QByteArray NginxConfig::locations() const
{
    const QString here = u"    rewrite ^ $zvupdate_installer last;\n"_s;
    const QString elsewhere = u"    add_header Cache-Control \"public, max-age=60\";\n"
                              "    return 302 %1$zvupdate_installer;\n"_s.arg(downloadHost);
    QString text = QString::fromUtf8(locationsText);
    text.replace(u"%DOWNLOAD%"_s, downloadHost.isEmpty() ? here : elsewhere);
    text.replace(u"%INTERNAL%"_s, downloadHost.isEmpty()
                                      ? u"internal;"_s
                                      : u"# Not internal, so that a content network can fetch."_s);
    text.replace(u"%PATH%"_s, path);
    text.replace(u"%ROOT%"_s, root);
    return text.toUtf8();
}
