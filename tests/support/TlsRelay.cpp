#include "TlsRelay.h"

#include <QDir>
#include <QFile>
#include <QUrl>

#include <csignal>

#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using X509Owner = std::unique_ptr<X509, decltype(&X509_free)>;

constexpr long day = 24 * 60 * 60;

void addExtension(X509 *certificate, int which, const char *value)
{
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, nullptr, which, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Key newKey()
{
    EVP_PKEY *key = nullptr;
    EVP_PKEY_CTX *const generator = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    if (EVP_PKEY_keygen_init(generator) != 1 ||
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(generator, NID_X9_62_prime256v1) != 1 ||
        EVP_PKEY_keygen(generator, &key) != 1)
        qFatal("No key for the tests can be made.");
    EVP_PKEY_CTX_free(generator);
    return {key, &EVP_PKEY_free};
}

/// A certificate for a key, not signed yet.
X509Owner certificateFor(EVP_PKEY *key, const char *name, long secondsLeft)
{
    static std::atomic<long> serial = 0;
    X509Owner certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), 2); // Which is to say 3.
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -2 * day);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), secondsLeft);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(name), -1, -1, 0);
    return certificate;
}

void sign(X509 *certificate, X509 *issuer, EVP_PKEY *issuerKey)
{
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    if (X509_sign(certificate, issuerKey, EVP_sha256()) == 0)
        qFatal("No certificate for the tests can be signed.");
}

/// Signs the certificates of this process, and lies in a file for the library.
class Authority
{
public:
    static const Authority &instance()
    {
        static const Authority authority;
        return authority;
    }

    Authority()
    {
        addExtension(own_.get(), NID_basic_constraints, "critical,CA:TRUE");
        sign(own_.get(), own_.get(), key_.get());
        FILE *const stream = std::fopen(fileName_.constData(), "w");
        if (!stream || PEM_write_X509(stream, own_.get()) == 0 || fclose(stream) != 0)
            qFatal("The tests' authority cannot be written.");
    }

    const QByteArray &fileName() const { return fileName_; }
    X509 *own() const { return own_.get(); }
    EVP_PKEY *key() const { return key_.get(); }

private:
    const Key key_ = newKey();
    const X509Owner own_ = certificateFor(key_.get(), "Authority of the tests", day);
    // In the home of this run, with which it goes.
    const QByteArray fileName_ =
        QFile::encodeName(QDir::home().filePath(QStringLiteral("authority")));
};

SSL_CTX *contextWith(TlsRelay::Certificate kind)
{
    const Authority &authority = Authority::instance();
    const Key key = newKey();
    const X509Owner certificate =
        certificateFor(key.get(), "Server of the tests", kind == TlsRelay::Expired ? -day : day);
    addExtension(certificate.get(), NID_subject_alt_name,
                 kind == TlsRelay::OfAnotherHost ? "IP:127.0.0.2" : "IP:127.0.0.1");
    if (kind == TlsRelay::SelfSigned)
        sign(certificate.get(), certificate.get(), key.get());
    else
        sign(certificate.get(), authority.own(), authority.key());
    SSL_CTX *const context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate(context, certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context, key.get()) != 1)
        qFatal("The tests' certificate cannot be used.");
    return context;
}

} // namespace

// Takes the place of curl's own function in the test programs, as the library has no way to be told
// of a further authority.
CURLMcode curl_multi_add_handle(CURLM *multi_handle, CURL *curl_handle)
{
    curl_easy_setopt(curl_handle, CURLOPT_CAINFO, Authority::instance().fileName().constData());
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
