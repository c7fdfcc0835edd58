#include "networkproxies.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkProxyQuery>
#include <QUrl>

std::string proxyOf(const QNetworkAccessManager & network, const std::string & url) {
    const QNetworkProxy proxy =
        network.proxyFactory()->queryProxy(QNetworkProxyQuery(QUrl(QString::fromStdString(url)))).value(0);
    if (proxy.type() == QNetworkProxy::NoProxy) return {};
    return (proxy.type() == QNetworkProxy::Socks5Proxy ? "socks5 " : "http ") +
           proxy.hostName().toStdString() + ":" + std::to_string(proxy.port()) + " " +
           proxy.user().toStdString() + ":" + proxy.password().toStdString();
}
