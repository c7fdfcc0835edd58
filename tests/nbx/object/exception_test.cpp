#include <nbx/object/exception.h>

#include <gtest/gtest.h>

namespace {

TEST(Exception, TellsMessageTextLineAndDetail) {
    const NBX::InputException e(L"unusable h\u00f6he", "a/b.txt", 7, L"not a number");
    EXPECT_STREQ(e.what(), "unusable h\xC3\xB6he: a/b.txt, line 7: not a number");
    EXPECT_EQ(e.message(), L"unusable h\u00f6he");
    EXPECT_EQ(e.detail(), L"not a number");
    EXPECT_EQ(e.path(), "a/b.txt");
    EXPECT_STREQ(NBX::IOError(L"bad", L"why").what(), "bad: why");
    EXPECT_STREQ(NBX::Exception(L"bad").what(), "bad");
}

TEST(Exception, TheFamilyIsCaughtByItsBases) {
    EXPECT_THROW(throw NBX::FileNotFoundException(L""), NBX::InputException);
    EXPECT_THROW(throw NBX::FileNotFoundException(L""), NBX::IOException);
    EXPECT_THROW(throw NBX::InputException(L""), NBX::Exception);
    EXPECT_THROW(throw NBX::IOError(L""), NBX::Exception);
    EXPECT_THROW(throw NBX::IOException(L""), std::exception);
    const NBX::IOError error(L"");
    EXPECT_EQ(dynamic_cast<const NBX::IOException *>(static_cast<const std::exception *>(&error)), nullptr);
}

} // namespace
