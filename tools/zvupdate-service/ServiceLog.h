#pragma once

#include <QByteArray>
#include <QString>

struct Reply;

/// The service's log on standard error: one line an event, headed by the time in UTC. Text that
/// came from outside is escaped, so that a line stays one line. May be called from any thread.
namespace ServiceLog {

/// An exchange that is over. Complete is false when the reply did not reach the client as a whole.
void exchange(const QByteArray &peer, const QByteArray &method, const Reply &reply, bool complete);

/// Anything else worth knowing.
void note(const QString &text);

/// Text as it appears in the log: control and formatting characters, quotes and backslashes
/// escaped, over-long text cut.
QString escaped(const QString &text);

} // namespace ServiceLog
