#include "core/http/httprangereply.h"

#include <random>

#include <gtest/gtest.h>

using namespace ZMT::CORE::IMPL;

namespace {

HttpReplyHead partial(const std::string & range,
                      std::vector<std::pair<std::string, std::string>> fields = {}) {
    fields.emplace_back("Content-Range", range);
    return {206, "Partial Content", std::move(fields)};
}

std::wstring judge(const HttpReplyHead & head, std::uint64_t offset = 0, const HttpFileVersion & known = {}) {
    return judgeRangeReply(L"h", head, offset, known);
}

} // namespace

TEST(HttpRangeReply, ContentRangeIsParsed) {
    const auto range = parseContentRange("bytes 10-19/4000000000000");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, 10u);
    EXPECT_EQ(range->last, 19u);
    EXPECT_EQ(range->total, 4000000000000u);
    EXPECT_TRUE(parseContentRange(" Bytes  0-0/1 "));
    EXPECT_EQ(parseContentRange("bytes 0-18446744073709551613/18446744073709551614")->total,
              18446744073709551614u);
}

TEST(HttpRangeReply, CorruptedContentRangesAreNone) {
    for (const char * value : {"",
                               " ",
                               "/",
                               "bytes",
                               "bytes 0-0",
                               "0-0/1",
                               "bytes 0-0/",
                               "bytes 0-0/*",
                               "bytes */10",
                               "bytes -1/10",
                               "bytes 0-/10",
                               "bytes 0/10",
                               "bytes 5-4/10",
                               "bytes 0-10/10",
                               "bytes 0-0/0",
                               "lines 0-0/10",
                               "bytes 0-0/10x",
                               "bytes +0-0/10",
                               "bytes 0--1/10",
                               "bytes 0-0/18446744073709551616",
                               "bytes 0-0/-10",
                               "bytes/10 0-0",
                               "bytes0-0/10",
                               "bytes 0 - 0/10"})
        EXPECT_FALSE(parseContentRange(value)) << value;
}

TEST(HttpRangeReply, RightAnswerIsAccepted) {
    EXPECT_EQ(judge(partial("bytes 0-0/10")), L"");
    EXPECT_EQ(judge(partial("bytes 5-9/10", {{"Content-Encoding", "identity"}}), 5, {10, "", ""}), L"");
}

TEST(HttpRangeReply, TextsSayWhatIsWrong) {
    EXPECT_EQ(judge({200, "OK", {{"Server", "x"}, {"Content-Length", "10"}}}),
              L"server 'h' does not support partial GET-requests via HTTP:\n"
              L"HTTP/1.1 200 OK\nServer: x\nContent-Length: 10\n");
    EXPECT_EQ(judge({206, "Partial Content", {}}),
              L"server 'h' does not support partial GET-requests via HTTP:\nHTTP/1.1 206 Partial Content\n");
    EXPECT_EQ(judge(partial("bytes 0-0")), L"server 'h' returned corrupted 'content-range' value: bytes 0-0");
    EXPECT_EQ(judge(partial("bytes 0-0/ten")),
              L"server 'h' returned corrupted 'content-range' value: bytes 0-0/ten");
    EXPECT_EQ(judge({404, "Not Found", {}}), L"server 'h' answered 404 Not Found");
    EXPECT_EQ(judge({200, "OK", {{"Content-Range", "bytes 0-0/10"}}}).substr(0, 33),
              L"server 'h' does not support parti");
    EXPECT_EQ(judge(partial("bytes 0-0/10", {{"content-encoding", "gzip"}})),
              L"server 'h' sent an encoded reply: gzip");
    EXPECT_EQ(judge(partial("bytes 0-0/10"), 1),
              L"server 'h' sent another range than the one from 1 on: bytes 0-0/10");
}

TEST(HttpRangeReply, ChangedFilesAreFound) {
    const HttpFileVersion known = {10, "\"a\"", "Mon"};
    const std::wstring changed = L"the file changed on server 'h' since it was opened";
    struct Case {
        const char *name, *etag, *date;
        bool isSame;
    };
    for (const Case & c :
         {Case{"the same", "\"a\"", "Mon", true}, Case{"another tag", "\"b\"", "Mon", false},
          Case{"strong tag outweighs date", "\"a\"", "Tue", true},
          Case{"no tag, the same date", "", "Mon", true}, Case{"no tag, another date", "", "Tue", false},
          Case{"no date", "\"a\"", "", true}, Case{"nothing", "", "", true}}) {
        HttpReplyHead head = partial("bytes 0-0/10");
        if (*c.etag) head.fields.emplace_back("ETag", c.etag);
        if (*c.date) head.fields.emplace_back("Last-Modified", c.date);
        EXPECT_EQ(judge(head, 0, known), c.isSame ? L"" : changed) << c.name;
    }
    EXPECT_EQ(judge(partial("bytes 0-0/11"), 0, known),
              L"the file changed on server 'h': it had 10 bytes and has 11");
}

TEST(HttpRangeReply, HeadsTellWhetherAFileHasChanged) {
    const HttpFileVersion known = {10, "\"a\"", ""};
    EXPECT_EQ(tellsChange(partial("bytes 0-0/10", {{"etag", "\"a\""}}), known), false);
    EXPECT_EQ(tellsChange(partial("bytes 0-0/10", {{"etag", "\"b\""}}), known), true);
    EXPECT_EQ(tellsChange(partial("bytes 0-0/11", {{"etag", "\"a\""}}), known), true);
    EXPECT_EQ(tellsChange({416, "Range Not Satisfiable", {}}, known), true);
    EXPECT_EQ(tellsChange(partial("bytes 0-0/*", {{"etag", "\"b\""}}), known), std::nullopt);
    EXPECT_EQ(tellsChange({404, "Not Found", {{"etag", "\"b\""}}}, known), std::nullopt);
    EXPECT_EQ(tellsChange({200, "OK", {{"content-range", "bytes 0-0/11"}}}, known), std::nullopt);
    EXPECT_EQ(tellsChange({}, known), std::nullopt);
    EXPECT_EQ(tellsChange(partial("bytes 0-0/10"), {}), std::nullopt);
    EXPECT_EQ(tellsChange({416, "Range Not Satisfiable", {}}, {}), std::nullopt);
}

TEST(HttpRangeReply, WeakTagLeavesItToTheDate) {
    const HttpFileVersion known = {10, "W/\"a\"", "Mon"};
    EXPECT_EQ(judge(partial("bytes 0-0/10", {{"etag", "W/\"a\""}, {"last-modified", "Mon"}}), 0, known), L"");
    EXPECT_NE(judge(partial("bytes 0-0/10", {{"etag", "W/\"a\""}, {"last-modified", "Tue"}}), 0, known), L"");
    EXPECT_NE(judge(partial("bytes 0-0/10", {{"etag", "W/\"b\""}, {"last-modified", "Mon"}}), 0, known), L"");
}

TEST(HttpRangeReply, VersionIsThatOfTheHead) {
    const HttpFileVersion version =
        versionOf(partial("bytes 0-0/10", {{"etag", "\"a\""}, {"last-modified", "Mon"}}));
    EXPECT_EQ(version.size, 10u);
    EXPECT_EQ(version.etag, "\"a\"");
    EXPECT_EQ(version.lastModified, "Mon");
}

TEST(HttpRangeReply, LongHeadIsShownInPart) {
    HttpReplyHead head{200, "OK", {}};
    for (int i = 0; i < 1000; ++i)
        head.fields.emplace_back("x-field-" + std::to_string(i), std::string(5000, 'x'));
    EXPECT_LE(judge(head).size(), 2100u);
    EXPECT_LE(judge({500, std::string(1 << 20, 'x'), {}}).size(), 2100u);
}

TEST(HttpRangeReply, NothingOfAServerCommandsATerminal) {
    const std::string bad = "\x1b]0;x\x07\r\x7f\xc2\x9b\t";
    EXPECT_EQ(judge({500, "a" + bad + "\xc3\xa4", {}}), L"server 'h' answered 500 a]0;x\u00e4");
    EXPECT_EQ(judge(partial("bytes " + bad)),
              L"server 'h' returned corrupted 'content-range' value: bytes ]0;x");
    EXPECT_EQ(judge({200, "OK", {{"a", bad}}}),
              L"server 'h' does not support partial GET-requests via HTTP:\nHTTP/1.1 200 OK\na: ]0;x\n");
}

TEST(HttpRangeReply, DatesOfAllThreeForms) {
    for (const char * text :
         {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"})
        EXPECT_EQ(parseHttpDate(text).value_or(0.0), 784111777.0) << text;
    for (const char * text :
         {"", "yesterday", "Sun, 31 Feb 1994 08:49:37 GMT", "Sun, 06 Nov 1994 24:49:37 GMT",
          "Sun, 06 Abc 1994 08:49:37 GMT", "Sun, 06 Nov 1994"})
        EXPECT_FALSE(parseHttpDate(text)) << text;
    EXPECT_EQ(parseHttpDate("Saturday, 01-Jan-00 00:00:00 GMT").value_or(0.0), 946684800.0);
}

TEST(HttpRangeReply, RetryAfterIsACountOrADate) {
    const auto after = [](const std::string & value, const std::string & date = "") {
        HttpReplyHead head{503, "", {{"Retry-After", value}}};
        if (!date.empty()) head.fields.emplace_back("Date", date);
        return retryAfter(head, 784111777.0);
    };
    EXPECT_EQ(after("120"), 120.0);
    EXPECT_EQ(after(" 2 "), 2.0);
    EXPECT_EQ(after("Sun, 06 Nov 1994 08:49:47 GMT"), 10.0);
    EXPECT_EQ(after("Sun, 06 Nov 1994 08:49:47 GMT", "Sun, 06 Nov 1994 08:49:42 GMT"), 5.0);
    EXPECT_EQ(after("Sun, 06 Nov 1994 08:49:27 GMT"), 0.0);
    EXPECT_EQ(after("99999999999"), 3600.0);
    EXPECT_EQ(after("-5"), 0.0);
    EXPECT_EQ(after("soon"), 0.0);
    EXPECT_EQ(retryAfter({503, "", {}}, 0.0), 0.0);
}

TEST(HttpRangeReply, RedirectsLeadToTheSameHostOrToHttps) {
    struct Case {
        HttpPlace from, to;
        bool isFollowed;
    };
    for (const Case & c :
         {Case{{"http", "a"}, {"http", "a"}, true}, Case{{"https", "a"}, {"https", "a"}, true},
          Case{{"http", "a"}, {"https", "a"}, true}, Case{{"http", "a"}, {"https", "b"}, true},
          Case{{"http", "a"}, {"http", "b"}, false}, Case{{"https", "a"}, {"https", "b"}, false},
          Case{{"https", "a"}, {"http", "a"}, false}}) {
        EXPECT_EQ(judgeRedirect(c.from, c.to, 1, false).empty(), c.isFollowed) << c.to.scheme << c.to.host;
        EXPECT_EQ(judgeRedirect(c.from, c.to, 5, true), L"");
        EXPECT_EQ(judgeRedirect(c.from, c.to, 6, true), L"server 'a' redirects more than 5 times");
    }
    EXPECT_EQ(judgeRedirect({"http", "a"}, {"http", "b"}, 1, false),
              L"server 'a' redirects to http://b, which is not followed");
    EXPECT_EQ(judgeRedirect({"http", "a"}, {"file", "a"}, 1, true),
              L"server 'a' redirects to file://a, which is no web server");
    EXPECT_NE(judgeRedirect({"http", "a"}, {"http", ""}, 1, true), L"");
}

TEST(HttpRangeReply, RedirectNeedsAStatusAndAGoal) {
    for (const int status : {301, 302, 303, 307, 308}) {
        EXPECT_TRUE((HttpReplyHead{status, "", {{"LOCATION", "/x"}}}.isRedirect()));
        EXPECT_FALSE((HttpReplyHead{status, "", {}}.isRedirect()));
    }
    for (const int status : {200, 206, 300, 304, 404})
        EXPECT_FALSE((HttpReplyHead{status, "", {{"Location", "/x"}}}.isRedirect())) << status;
}

/// What is accepted has the offset and the total that it must have, whatever the server sends.
TEST(HttpRangeReply, RandomHeadsAreJudgedWithoutHarm) {
    const unsigned seed = 20261;
    std::mt19937 random(seed);
    const std::string alphabet = "bytes 0123456789-/*, \t:GMTSunNov\x80\xff";
    unsigned accepted = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string range = "bytes 5-9/10", after = "Sun, 06 Nov 1994 08:49:37 GMT";
        for (std::string * text : {&range, &after})
            for (unsigned changes = random() % 3; changes > 0; --changes)
                (*text)[random() % text->size()] = alphabet[random() % alphabet.size()];
        const HttpReplyHead head = partial(range, {{"retry-after", after}});
        if (judge(head, 5, {10, "", ""}).empty()) {
            ++accepted;
            const auto parsed = parseContentRange(range);
            EXPECT_TRUE(parsed && parsed->first == 5 && parsed->total == 10 && parsed->last < 10) << range;
        }
        const double pause = retryAfter(head, 784111777.0);
        EXPECT_TRUE(pause >= 0.0 && pause <= 3600.0) << after << ", seed " << seed;
    }
    EXPECT_GT(accepted, 1000u);
}
