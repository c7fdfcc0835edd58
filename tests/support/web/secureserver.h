#pragma once

#include <memory>
#include <string>

class QSslServer;

/// A web server on loopback that is reached over TLS, with a certificate for "localhost" that nobody signed
/// but itself. It runs in the event loop, and gives the same answer to everything.
class SecureServer {
public:
    /// Without an answer: the first byte of a file of ten.
    explicit SecureServer(const std::string & answer = "");
    ~SecureServer();
    SecureServer(const SecureServer &) = delete;
    SecureServer & operator=(const SecureServer &) = delete;

    static bool isSupported();
    std::string url() const;
    int requests() const { return requests_; }
    /// What the last client agreed to speak, of "h2" and "http/1.1"; empty where it did not say.
    const std::string & protocol() const { return protocol_; }

private:
    std::unique_ptr<QSslServer> server_;
    int requests_ = 0;
    std::string protocol_;
};

/// The certificate counts as known while this lives.
class KnownCertificate {
public:
    KnownCertificate();
    ~KnownCertificate();
    KnownCertificate(const KnownCertificate &) = delete;
    KnownCertificate & operator=(const KnownCertificate &) = delete;

private:
    struct Before;
    std::unique_ptr<Before> before_;
};
