#include "core/http/httpproxy.h"

#include <map>

#include <gtest/gtest.h>

using ZMT::CORE::IMPL::proxyFor;

namespace {

std::map<std::string, std::string> s_variables;

std::string proxy(const std::map<std::string, std::string> & variables, const std::string & scheme,
                  const std::string & host) {
    s_variables = variables;
    return proxyFor(scheme, host, [](const char * name) { return s_variables[name]; });
}

} // namespace

TEST(HttpProxy, NoneWithoutVariables) {
    EXPECT_EQ(proxy({}, "http", "a"), "");
}

TEST(HttpProxy, EachSchemeHasItsVariable) {
    const std::map<std::string, std::string> both = {{"http_proxy", "http://p:1"},
                                                     {"https_proxy", "http://q:2"}};
    EXPECT_EQ(proxy(both, "http", "a"), "http://p:1");
    EXPECT_EQ(proxy(both, "https", "a"), "http://q:2");
    EXPECT_EQ(proxy({{"HTTPS_PROXY", "http://q:2"}}, "https", "a"), "http://q:2");
    EXPECT_EQ(proxy({{"HTTP_PROXY", "http://q:2"}}, "http", "a"), "");
    EXPECT_EQ(proxy({{"all_proxy", "socks5://s:3"}}, "http", "a"), "socks5://s:3");
    EXPECT_EQ(proxy({{"ALL_PROXY", "socks5://s:3"}}, "https", "a"), "socks5://s:3");
    EXPECT_EQ(proxy({{"http_proxy", "p:1"}, {"all_proxy", "s:3"}}, "http", "a"), "http://p:1");
}

TEST(HttpProxy, ExceptionsAreHostsAndDomains) {
    const auto isException = [](const std::string & list, const std::string & host) {
        return proxy({{"http_proxy", "p"}, {"no_proxy", list}}, "http", host).empty();
    };
    EXPECT_TRUE(isException("a.com", "a.com"));
    EXPECT_TRUE(isException("b, a.com", "A.com"));
    EXPECT_TRUE(isException("a.com", "x.a.com"));
    EXPECT_TRUE(isException(".a.com", "x.a.com"));
    EXPECT_TRUE(isException("*.a.com", "x.a.com"));
    EXPECT_TRUE(isException("a.com:80", "a.com"));
    EXPECT_TRUE(isException("*", "a"));
    EXPECT_TRUE(isException("::1", "::1"));
    EXPECT_FALSE(isException("a.com", "ba.com"));
    EXPECT_FALSE(isException("x.a.com", "a.com"));
    EXPECT_FALSE(isException("", "a"));
    EXPECT_FALSE(isException(",,", "a"));
    EXPECT_TRUE(proxy({{"http_proxy", "p"}, {"NO_PROXY", "a"}}, "http", "a").empty());
}
