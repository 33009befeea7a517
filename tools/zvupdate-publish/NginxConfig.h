#pragma once

#include "SiteContents.h"

/// How nginx is told of a static site.
struct NginxConfig
{
    /// The path and the query key of the base URL that clients have.
    QString path = QStringLiteral("/Update/ZVDLCtl.dll");
    QString queryKey = QStringLiteral("dt");
    /// The site's folder, as the web server sees it.
    QString root;
    /// Where downloads are sent, without a slash at the end; empty when they stay here.
    QString downloadHost;

    /// For inside http {}, before every map: how much room maps need.
    static QByteArray hash(const SiteContents &site);
    /// For inside http {}: the maps from sealed commands to files.
    QByteArray maps(const SiteContents &site) const;
    /// For inside server {}: how the files are served.
    QByteArray locations() const;
};
