#include "nbx/data/locator.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using NBX::Locator;

TEST(Locator, TellsFilesFromWhatLiesElsewhere) {
    struct Case {
        const char *given, *scheme, *text, *suffix;
    };
    const std::vector<Case> cases = {
        {"", "", "", ""},
        {"a/b.TIF", "", "a/b.TIF", "TIF"},
        {"/a.b/c", "", "/a.b/c", ""},
        {"C://x.png", "c", "C://x.png", ""},
        {"://x.png", "", "://x.png", "png"},
        {"a b://x.png", "", "a b://x.png", "png"},
        {"1a://x.png", "", "1a://x.png", "png"},
        {"http:/x.png", "", "http:/x.png", "png"},
        {"http://host/a/b.ztt", "http", "http://host/a/b.ztt", "ztt"},
        {"HTTP://host/a/b.ztt?c=d.png#e.jpg", "http", "HTTP://host/a/b.ztt?c=d.png#e.jpg", "ztt"},
        {"http://host.org", "http", "http://host.org", ""},
        {"http://host.org?a/b.png", "http", "http://host.org?a/b.png", ""},
        {"http://", "http", "http://", ""},
        {"file:///a%20b/c%2Epng", "", "/a b/c.png", "png"},
        {"File://localhost/a/b", "", "/a/b", ""},
        {"file:///a%2", "", "/a%2", ""},
        {"file:///a%zz%4", "", "/a%zz%4", ""},
        {"file://host", "", "", ""},
    };
    for (const Case & c : cases) {
        const Locator locator(c.given);
        EXPECT_EQ(locator.scheme(), c.scheme) << c.given;
        EXPECT_EQ(locator.isFile(), locator.scheme().empty()) << c.given;
        EXPECT_EQ(locator.text(), c.text) << c.given;
        EXPECT_EQ(locator.suffix(), c.suffix) << c.given;
    }
}

TEST(Locator, KnowsWebServers) {
    for (const char * url : {"http://h/a", "HTTPS://h/a.ztt?b"})
        EXPECT_TRUE(Locator(url).isOnWebServer()) << url;
    for (const char * other :
         {"ftp://h/a", "httpx://h", "file:///http://h", "/a", "", "http:/h", "a/http://h"})
        EXPECT_FALSE(Locator(other).isOnWebServer()) << other;
}

TEST(Locator, IsShownWithoutWhatOthersMustNotSee) {
    struct Case {
        const char *given, *stored, *shown;
    };
    const std::vector<Case> cases = {
        {"http://a:b@h/f", "http://h/f", "http://h/f"},
        {"https://a@h:1?x=c@d", "https://h:1?x=c@d", "https://h:1"},
        {"http://a:b@c@h:99999999/f#g@h", "http://h:99999999/f#g@h", "http://h:99999999/f"},
        {"http://h/a@b?key=1#2", "http://h/a@b?key=1#2", "http://h/a@b"},
        {"http://@", "http://", "http://"},
        {"//a:b@h/f?g", "//a:b@h/f?g", "//a:b@h/f?g"},
        {"/a@b", "/a@b", "/a@b"},
        {"what is it?#1.tif", "what is it?#1.tif", "what is it?#1.tif"},
        {"", "", ""},
    };
    for (const Case & c : cases) {
        EXPECT_EQ(Locator(c.given).withoutLogin(), c.stored) << c.given;
        EXPECT_EQ(Locator(c.given).shown(), c.shown) << c.given;
    }
}

TEST(Locator, UrlsInSentencesAreShownSo) {
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"", ""},
        {"no URL: at all?", "no URL: at all?"},
        {"opening http://u:p@h/a.ztt?k=1: it is gone", "opening http://h/a.ztt: it is gone"},
        {"(https://h/a?k=1), 'http://u@h/b?c' and http://u:p@h.",
         "(https://h/a), 'http://h/b' and http://h."},
        {"--terrain=http://u:p@h/a?b", "--terrain=http://h/a"},
        {"http://", "http://"},
        {"://x?y", "://x?y"},
        {"http://u:p@h?http://v:q@i/z", "http://h"},
        {"'http://u:don't@h/a?it's'", "'http://h/a'"},
        {"'http://u:p@h','http://v:q@i'", "'http://h','http://i'"},
        {"http://u:p@h/a'", "http://h/a'"},
        {"file:///a?b c", "file:///a?b c"},
    };
    for (const auto & [given, shown] : cases)
        EXPECT_EQ(Locator::shownIn(given), shown) << given;
}

TEST(Locator, UrlsInNamesAreStoredWithoutLogin) {
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"", ""},
        {"/vsicurl/https://u:p@h/a.tif?key=1#2", "/vsicurl/https://h/a.tif?key=1#2"},
        {"/vsizip//vsicurl/http://u@h/a.zip/b.tif", "/vsizip//vsicurl/http://h/a.zip/b.tif"},
        {"NETCDF:\"/vsicurl/http://u:p@h/a.nc\":heights", "NETCDF:\"/vsicurl/http://h/a.nc\":heights"},
        {"/vsis3/bucket/a@b.tif", "/vsis3/bucket/a@b.tif"},
    };
    for (const auto & [given, stored] : cases)
        EXPECT_EQ(Locator::withoutLoginsIn(given), stored) << given;
}

TEST(Locator, CodesAreDecoded) {
    EXPECT_EQ("http://u:p@h/ %2", Locator::decoded("http%3A%2f%2Fu:p%40h/%20%2"));
    EXPECT_EQ("%", Locator::decoded("%"));
    EXPECT_EQ("%zz%4", Locator::decoded("%zz%4"));
}

} // namespace
