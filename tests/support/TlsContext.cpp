#include "TlsContext.h"

#include <QDir>
#include <QFile>

#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace {

using X509Owner = std::unique_ptr<X509, decltype(&X509_free)>;

// In the home of this run, with which it goes.
QByteArray trustedFile()
{
    return QFile::encodeName(QDir::home().filePath(QStringLiteral("trusted")));
}

/// A certificate that its own key has signed.
X509Owner certificateFor(EVP_PKEY *key, Certificate kind)
{
    constexpr long day = 24 * 60 * 60;
    static long serial = 0;
    X509Owner owner(X509_new(), &X509_free);
    X509 *const made = owner.get();
    X509_set_version(made, 2); // Which is to say 3.
    ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made), -2 * day);
    X509_gmtime_adj(X509_getm_notAfter(made), kind == Certificate::Expired ? -day : day);
    X509_NAME *const name = X509_get_subject_name(made);
    const QByteArray ownName = "Server " + QByteArray::number(serial);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(ownName.constData()), -1, -1,
                               0);
    X509_set_issuer_name(made, name);
    X509_EXTENSION *const address =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name,
                            kind == Certificate::OfAnotherHost ? "IP:127.0.0.2" : "IP:127.0.0.1");
    X509_add_ext(made, address, -1);
    X509_EXTENSION_free(address);
    X509_set_pubkey(made, key);
    if (X509_sign(made, key, EVP_sha256()) == 0)
        qFatal("No certificate for the tests can be signed.");
    return owner;
}

} // namespace

std::shared_ptr<SSL_CTX> tlsContext(Certificate kind)
{
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                  &EVP_PKEY_free);
    const X509Owner certificate = certificateFor(key.get(), kind);
    const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (SSL_CTX_use_certificate(context.get(), certificate.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1)
        qFatal("The tests' certificate cannot be used.");
    if (kind == Certificate::Untrusted)
        return context;
    FILE *const trusted = std::fopen(trustedFile().constData(), "a");
    if (!trusted || PEM_write_X509(trusted, certificate.get()) == 0 || fclose(trusted) != 0)
        qFatal("The tests' certificate cannot be written.");
    return context;
}

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
