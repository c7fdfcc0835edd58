#include "secureserver.h"

#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

#include "testcertificate.h"

SecureServer::SecureServer(const std::string & answer) : server_(std::make_unique<QSslServer>()) {
    const QByteArray bytes =
        QByteArray::fromStdString(answer.empty() ? "HTTP/1.1 206 Partial Content\r\nContent-Length: 1\r\n"
                                                   "Content-Range: bytes 0-0/10\r\n\r\nx"
                                                 : answer);
    QSslConfiguration configuration;
    configuration.setLocalCertificate(QSslCertificate(testCertificate));
    configuration.setPrivateKey(QSslKey(testKey, QSsl::Ec));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    configuration.setAllowedNextProtocols(
        {QSslConfiguration::ALPNProtocolHTTP2, QSslConfiguration::NextProtocolHttp1_1});
    server_->setSslConfiguration(configuration);
    server_->listen(QHostAddress::LocalHost);
    QObject::connect(server_.get(), &QSslServer::pendingConnectionAvailable, server_.get(), [this, bytes] {
        QTcpSocket * socket = server_->nextPendingConnection();
        if (const auto * encrypted = qobject_cast<QSslSocket *>(socket))
            protocol_ = encrypted->sslConfiguration().nextNegotiatedProtocol().toStdString();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, bytes] {
            ++requests_;
            socket->readAll();
            socket->write(bytes);
        });
    });
}

SecureServer::~SecureServer() = default;

bool SecureServer::isSupported() {
    return QSslSocket::supportsSsl();
}

std::string SecureServer::url() const {
    return "https://localhost:" + std::to_string(server_->serverPort()) + "/f";
}

struct KnownCertificate::Before {
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
};

KnownCertificate::KnownCertificate() : before_(std::make_unique<Before>()) {
    QSslConfiguration configuration = before_->configuration;
    configuration.addCaCertificate(QSslCertificate(testCertificate));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

KnownCertificate::~KnownCertificate() {
    QSslConfiguration::setDefaultConfiguration(before_->configuration);
}
