#pragma once

#include <memory>

#include <openssl/ssl.h>

/// The certificate of a server for 127.0.0.1; all but good ones are to be refused.
enum class Certificate { Good, Expired, Untrusted, OfAnotherHost };

/// What a server needs for TLS, with a certificate of that kind from certificates/. In a test
/// program that has this file the library trusts those that trusted.pem has signed.
std::shared_ptr<SSL_CTX> tlsContext(Certificate kind);
