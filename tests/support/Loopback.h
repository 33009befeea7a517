#pragma once

#include <QByteArrayView>

/// TCP sockets on the loopback interface.
namespace Loopback {

/// Listens on a port of its own, which is stored.
int listen(quint16 &port);
int accept(int listener);
/// Connects to a port; without success the socket is at its end.
int connect(quint16 port);
/// False when the peer has gone.
bool sendAll(int socket, QByteArrayView bytes);
/// Lets the peer see a break, and not an end in order, when the socket is closed.
void discardWhenClosed(int socket);

} // namespace Loopback
