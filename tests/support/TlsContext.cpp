#include "TlsContext.h"

#include <QtGlobal>

#include <curl/curl.h>
#include <dlfcn.h>

std::shared_ptr<SSL_CTX> tlsContext(Certificate kind)
{
    constexpr const char *files[] = {
        ZVUPDATE_CERTIFICATES "/good.pem", ZVUPDATE_CERTIFICATES "/expired.pem",
        ZVUPDATE_CERTIFICATES "/untrusted.pem", ZVUPDATE_CERTIFICATES "/of-another-host.pem"};
    const char *const file = files[static_cast<int>(kind)];
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    if (SSL_CTX_use_certificate_file(context.get(), file, SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(context.get(), file, SSL_FILETYPE_PEM) != 1)
        qFatal("%s cannot be used.", file);
    return context;
}

// Takes the place of curl's own function in the test programs, as the library has no way to be told
// of further certificates.
CURLMcode curl_multi_add_handle(CURLM *multi_handle, CURL *curl_handle)
{
    curl_easy_setopt(curl_handle, CURLOPT_CAINFO, ZVUPDATE_CERTIFICATES "/trusted.pem");
    static const auto curls =
        reinterpret_cast<decltype(&curl_multi_add_handle)>(dlsym(RTLD_NEXT, __func__));
    return curls(multi_handle, curl_handle);
}
