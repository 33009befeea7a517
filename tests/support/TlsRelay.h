#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <openssl/ssl.h>

/// A TLS relay on a port of its own on the loopback interface, which hands what it has decrypted to
/// a server of the tests, so that those speak plain HTTP only. Its certificate is made for it, by
/// an authority of this process; the library trusts that one in a test program that has this file.
/// Needs no event loop; its functions may be called from any thread.
class TlsRelay
{
public:
    /// The certificate; all but Good are to be refused.
    enum Certificate { Good, Expired, SelfSigned, OfAnotherHost };
    /// Whether clients come straight, or have it connect as a proxy first.
    enum Way { Direct, AsProxy };

    /// A relay to a server on the loopback interface, of which only the port of the URL counts.
    explicit TlsRelay(const QString &serverUrl, Certificate certificate = Good, Way way = Direct);
    ~TlsRelay();

    TlsRelay(const TlsRelay &) = delete;
    TlsRelay &operator=(const TlsRelay &) = delete;

    /// "127.0.0.1:PORT".
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(port_); }
    QString baseUrl() const { return QStringLiteral("https://%1/?dt=").arg(address()); }

    /// How many connections were opened up to now by a request to a proxy.
    int proxied() const { return proxied_; }

private:
    struct Connection
    {
        int client = -1; // Changed under mutex_ only; -1 when it is over.
        std::thread thread;
    };

    void acceptConnections();
    void serve(int client);
    bool becomeTunnel(int client);
    void relay(SSL *client) const;

    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
    const quint16 serverPort_;
    const Way way_;
    int listener_ = -1;
    quint16 port_ = 0;
    std::atomic<int> proxied_ = 0;

    std::mutex mutex_;
    bool stopping_ = false;                                // Guarded by mutex_.
    std::vector<std::unique_ptr<Connection>> connections_; // Guarded by mutex_.
    std::thread acceptor_;
};
