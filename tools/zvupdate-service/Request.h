#pragma once

#include <QByteArray>
#include <QString>

/// One HTTP request, as far as it matters here.
struct Request
{
    QByteArray method;
    QByteArray path;
    /// The query's value of "dt"; empty when there is none.
    QString sealedCommand;
    /// The Range header field; empty when there is none.
    QByteArray range;
};
