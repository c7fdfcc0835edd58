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

} // namespace
