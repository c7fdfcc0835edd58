#include <zmt/util/colortable.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/zmtrun.h>

#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/node/scenething.h>

namespace {

using NBX::Color;
using NBX::StringUtils;
using ZMT::UTIL::ColorTable;
using EntryNames = std::vector<std::wstring>;

EntryNames namesOf(const ColorTable & table) {
    const auto names = table.getEntries();
    return EntryNames(names->beginSTL(), names->endSTL());
}

class ColorTableTest : public testing::Test {
protected:
    std::wstring file(const std::string & name = "palette.nbx") const {
        return StringUtils::Utf8String2WString(folder_.out(name));
    }

    RecordedReports reports_;
    RunFolder folder_;
    NBX::SO<ColorTable> table_ = new ColorTable;
};

TEST_F(ColorTableTest, KeepsColoursByName) {
    const auto before = table_->lastTransactionNo();
    table_->newEntry(L"ice", Color::white);
    table_->newEntry(L"Gr\u00FCn", Color(0.1F, 0.5F, 0.2F, 0.25F));
    EXPECT_GT(table_->lastTransactionNo(), before);
    EXPECT_EQ(table_->entries(), 2U);
    EXPECT_EQ(namesOf(*table_), (EntryNames{L"ice", L"Gr\u00FCn"}));
    EXPECT_TRUE(table_->entryExists(L"ice"));
    EXPECT_FALSE(table_->entryExists(L"Ice"));
    EXPECT_EQ(table_->getColor(L"Gr\u00FCn"), Color(0.1F, 0.5F, 0.2F, 0.25F));
    table_->setEntry(L"ice", Color::lt_blue);
    EXPECT_EQ(table_->getColor(L"ice"), Color::lt_blue);
    EXPECT_EQ(table_->entries(), 2U);
    auto noted = table_->lastTransactionNo();
    table_->deleteEntry(L"ice");
    EXPECT_GT(table_->lastTransactionNo(), std::exchange(noted, table_->lastTransactionNo()));
    table_->deleteEntry(L"ice");
    EXPECT_EQ(table_->lastTransactionNo(), noted) << "nothing changes";
    EXPECT_EQ(namesOf(*table_), EntryNames{L"Gr\u00FCn"});
    table_->clear();
    EXPECT_GT(table_->lastTransactionNo(), noted);
    EXPECT_EQ(table_->entries(), 0U);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(ColorTableTest, AnUnknownNameIsBlackAndReported) {
    EXPECT_EQ(table_->getColor(L"ice"), Color::black);
    EXPECT_EQ(reports_.count(0, L"value", L"unknown key"), 1U) << reports_;
}

TEST_F(ColorTableTest, RenamingTakesTheColourAlong) {
    table_->newEntry(L"a", Color::red);
    table_->newEntry(L"b", Color::blue);
    table_->renameEntry(L"a", L"c");
    EXPECT_EQ(table_->getColor(L"c"), Color::red);
    EXPECT_FALSE(table_->entryExists(L"a"));
    table_->renameEntry(L"c", L"b");
    EXPECT_EQ(table_->entries(), 1U);
    EXPECT_EQ(table_->getColor(L"b"), Color::red) << "a name that exists is overwritten";
    table_->renameEntry(L"b", L"b");
    EXPECT_TRUE(table_->entryExists(L"b"));
    EXPECT_TRUE(reports_.empty()) << reports_;
    table_->renameEntry(L"nobody", L"d");
    EXPECT_EQ(reports_.size(), 1U);
    EXPECT_EQ(namesOf(*table_), EntryNames{L"b"});
}

TEST_F(ColorTableTest, ACopyHasEntriesOfItsOwn) {
    table_->newEntry(L"a", Color::red);
    const NBX::SO<ColorTable> copy(new ColorTable(*table_));
    copy->newEntry(L"b", Color::blue);
    copy->setEntry(L"a", Color::green);
    EXPECT_EQ(namesOf(*table_), EntryNames{L"a"});
    EXPECT_EQ(table_->getColor(L"a"), Color::red);
    EXPECT_EQ(namesOf(*copy), (EntryNames{L"a", L"b"}));
}

TEST_F(ColorTableTest, StoresItsTable) {
    EXPECT_EQ(RecordedAttributes::of(*table_, true), std::vector<std::string>{"table"});
    table_->newEntry(L"Gr\u00FCn = \U0001F5FB", Color(0.1F, 0.5F, 0.2F, 0.25F));
    table_->newEntry(L"", Color::gold);
    for (const auto & read : {roundTrip(table_), roundTrip(table_, false)}) {
        ASSERT_TRUE(read);
        EXPECT_EQ(namesOf(*read), namesOf(*table_));
        for (const std::wstring & name : namesOf(*table_))
            EXPECT_EQ(read->getColor(name), table_->getColor(name));
    }
    const auto empty = roundTrip(NBX::SO<ColorTable>(new ColorTable));
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->entries(), 0U);
}

TEST_F(ColorTableTest, LoadingMergesOrReplaces) {
    table_->newEntry(L"ice", Color::white);
    table_->newEntry(L"water", Color::blue);
    EXPECT_TRUE(table_->saveTable(file()));

    const NBX::SO<ColorTable> loaded(new ColorTable(file()));
    EXPECT_EQ(namesOf(*loaded), (EntryNames{L"ice", L"water"}));

    loaded->newEntry(L"rock", Color::gold);
    loaded->setEntry(L"ice", Color::red);
    const auto before = loaded->lastTransactionNo();
    EXPECT_TRUE(loaded->loadTable(file(), false));
    EXPECT_GT(loaded->lastTransactionNo(), before);
    EXPECT_EQ(namesOf(*loaded), (EntryNames{L"ice", L"water", L"rock"})) << "what the file lacks stays";
    EXPECT_EQ(loaded->getColor(L"ice"), Color::white) << "what it has comes";

    EXPECT_TRUE(loaded->loadTable(file(), true));
    EXPECT_EQ(namesOf(*loaded), (EntryNames{L"ice", L"water"}));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(ColorTableTest, AFileThatHoldsNoTableAddsNothing) {
    table_->newEntry(L"ice", Color::white);
    EXPECT_FALSE(table_->loadTable(file("missing.nbx"), false));
    const std::string text = folder_.write("text.nbx", "ice=ffffff\n");
    EXPECT_FALSE(table_->loadTable(StringUtils::Utf8String2WString(text), false));
    EXPECT_EQ(namesOf(*table_), EntryNames{L"ice"});
    EXPECT_FALSE(table_->loadTable(file("missing.nbx"), true));
    EXPECT_EQ(table_->entries(), 0U);
    EXPECT_EQ(NBX::SO<ColorTable>(new ColorTable(file("missing.nbx")))->entries(), 0U);
    EXPECT_TRUE(reports_.empty()) << reports_;
    EXPECT_THROW(table_->saveTable(file("missing/palette.nbx")), NBX::IOException);
}

/// Each of them gives a table, nothing, or an exception.
TEST_F(ColorTableTest, DamagedBytesAreNoHarm) {
    table_->newEntry(L"ice", Color::white);
    table_->newEntry(L"water", Color::blue);
    const std::vector<std::uint8_t> whole = NBX::ObjectStreamWriter::write(*table_);
    unsigned tables = 0;
    const auto read = [&](const std::vector<std::uint8_t> & bytes) {
        try {
            const auto table =
                NBX::soCast<ColorTable>(NBX::ObjectStreamReader(bytes.data(), bytes.size()).read());
            if (!table) return;
            EXPECT_LE(table->entries(), 2U);
            ++tables;
        } catch (const NBX::Exception &) {
        }
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        read({whole.begin(), whole.begin() + std::ptrdiff_t(at)});
        for (const std::uint8_t bits : {0x01, 0x21, 0xFF}) {
            std::vector<std::uint8_t> bytes = whole;
            bytes[at] ^= bits;
            read(bytes);
        }
    }
    EXPECT_GT(tables, 10U) << "such as those with another colour";
}

} // namespace
