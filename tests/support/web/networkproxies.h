#pragma once

#include <string>

class QNetworkAccessManager;

/// The proxy by which `network` asks `url`: "http" or "socks5" with host, port and login; empty for none.
std::string proxyOf(const QNetworkAccessManager & network, const std::string & url);
