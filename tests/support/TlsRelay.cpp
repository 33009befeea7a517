#include "TlsRelay.h"

#include <QDir>
#include <QFile>
#include <QUrl>

#include <csignal>

#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using X509Owner = std::unique_ptr<X509, decltype(&X509_free)>;

// In the home of this run, with which it goes.
QByteArray trustedFile()
{
    return QFile::encodeName(QDir::home().filePath(QStringLiteral("trusted")));
}

/// A certificate that its own key has signed.
X509Owner certificateFor(EVP_PKEY *key, TlsRelay::Certificate kind)
{
    constexpr long day = 24 * 60 * 60;
    static long serial = 0;
    X509Owner owner(X509_new(), &X509_free);
    X509 *const made = owner.get();
    X509_set_version(made, 2); // Which is to say 3.
    ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made), -2 * day);
    X509_gmtime_adj(X509_getm_notAfter(made), kind == TlsRelay::Expired ? -day : day);
    X509_NAME *const name = X509_get_subject_name(made);
    const QByteArray ownName = "Server " + QByteArray::number(serial);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(ownName.constData()), -1, -1,
                               0);
    X509_set_issuer_name(made, name);
    X509_EXTENSION *const address =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name,
                            kind == TlsRelay::OfAnotherHost ? "IP:127.0.0.2" : "IP:127.0.0.1");
    X509_add_ext(made, address, -1);
    X509_EXTENSION_free(address);
    X509_set_pubkey(made, key);
    if (X509_sign(made, key, EVP_sha256()) == 0)
        qFatal("No certificate for the tests can be signed.");
    return owner;
}

SSL_CTX *contextWith(TlsRelay::Certificate kind)
{
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                  &EVP_PKEY_free);
    const X509Owner certificate = certificateFor(key.get(), kind);
    SSL_CTX *const context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate(context, certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context, key.get()) != 1)
        qFatal("The tests' certificate cannot be used.");
    if (kind == TlsRelay::Untrusted)
        return context;
    FILE *const trusted = std::fopen(trustedFile().constData(), "a");
    if (!trusted || PEM_write_X509(trusted, certificate.get()) == 0 || fclose(trusted) != 0)
        qFatal("The tests' certificate cannot be written.");
    return context;
}

} // namespace

// Takes the place of curl's own function in the test programs, as the library has no way to be told
// of further certificates.
CURLMcode curl_multi_add_handle(CURLM *multi_handle, CURL *curl_handle)
{
    if (const QByteArray file = trustedFile(); QFile::exists(QFile::decodeName(file)))
        curl_easy_setopt(curl_handle, CURLOPT_CAINFO, file.constData());
    curl_easy_setopt(curl_handle, CURLOPT_CA_CACHE_TIMEOUT, 0L); // There may be more by now.
    static const auto curls =
        reinterpret_cast<decltype(&curl_multi_add_handle)>(dlsym(RTLD_NEXT, __func__));
    return curls(multi_handle, curl_handle);
}

TlsRelay::TlsRelay(const QString &serverUrl, Certificate certificate, Way way)
    : context_(contextWith(certificate), &SSL_CTX_free),
      serverPort_(static_cast<quint16>(QUrl(serverUrl).port())),
      way_(way)
{
}

void TlsRelay::serve(int client)
{
    // A client that has gone must not end the tests; OpenSSL has no flag for that.
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);

    if (way_ == AsProxy && !becomeTunnel(client))
        return;
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context_.get()), &SSL_free);
    SSL_set_fd(tls.get(), client);
    if (SSL_accept(tls.get()) == 1)
        relay(tls.get());
}

// Takes the request for a tunnel off the connection, and not a byte more.
bool TlsRelay::becomeTunnel(int client)
{
    QByteArray request;
    for (char byte = 0; !request.endsWith("\r\n\r\n"); request += byte)
        if (::recv(client, &byte, 1, 0) <= 0)
            return false;
    if (!request.startsWith("CONNECT "))
        return false;
    ++proxied_;
    return Loopback::sendAll(client, "HTTP/1.1 200 Connected\r\n\r\n");
}

// Until either side ends.
void TlsRelay::relay(SSL *client) const
{
    const int server = Loopback::connect(serverPort_);
    pollfd ends[] = {{SSL_get_fd(client), POLLIN, 0}, {server, POLLIN, 0}};
    char bytes[16 * 1024]; // The most that a record holds: so none is left behind unseen.
    for (;;) {
        ::poll(ends, 2, -1);
        if (ends[0].revents != 0) {
            const int length = SSL_read(client, bytes, sizeof bytes);
            if (length <= 0 || !Loopback::sendAll(server, QByteArrayView(bytes, length)))
                break;
        }
        if (ends[1].revents != 0) {
            const ssize_t length = ::recv(server, bytes, sizeof bytes, 0);
            if (length <= 0 || SSL_write(client, bytes, static_cast<int>(length)) <= 0)
                break;
        }
    }
    SSL_shutdown(client);
    ::close(server);
}
