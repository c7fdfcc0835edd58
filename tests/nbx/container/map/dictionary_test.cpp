#include <nbx/container/map/dictionary.h>

#include <gtest/gtest.h>

#include <nbx/math/color.h>
#include <support/recordedreports.h>

using namespace NBX;

namespace {

using Palette = Dictionary<std::wstring, Color>;

TEST(Dictionary, InsertingReplacesTheValue) {
    const SO<Palette> palette(new Palette(1009));
    palette->insert(L"sky", Color::blue);
    palette->insert(L"grass", Color::green);
    palette->insert(L"sky", Color::red);
    EXPECT_EQ(palette->size(), 2U);
    EXPECT_EQ(palette->get(L"sky"), Color::red);
    *palette->find(L"sky") = Color::white;
    EXPECT_EQ(palette->get(L"sky"), Color::white);
    EXPECT_TRUE(palette->contains(L"grass"));
    EXPECT_TRUE(palette->remove(L"grass"));
    EXPECT_FALSE(palette->remove(L"grass"));
    palette->clear();
    EXPECT_TRUE(palette->isEmpty());
}

TEST(Dictionary, AnUnknownKeyIsReportedAndGivesTheDefault) {
    const RecordedReports reports;
    const SO<Palette> palette(new Palette);
    EXPECT_EQ(palette->find(L"sky"), nullptr);
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(palette->get(L"sky"), Color());
    EXPECT_EQ(reports.count(0, L"value", L"unknown key"), 1U) << reports;
}

TEST(Dictionary, KeysAndValuesComeInTheOrderOfInsertion) {
    SO<Palette> palette(new Palette);
    palette->insert(L"b", Color::blue);
    palette->insert(L"a", Color::red);
    const SO<Iterator<std::wstring>> keys = palette->keys();
    const SO<Iterator<Color>> values = palette->values();
    palette->insert(L"b", Color::green);
    palette = nullptr;
    EXPECT_EQ(std::vector<std::wstring>(keys->beginSTL(), keys->endSTL()),
              (std::vector<std::wstring>{L"b", L"a"}));
    EXPECT_EQ(values->get(0), Color::green);
    EXPECT_EQ(values->get(1), Color::red);
}

TEST(Dictionary, KeysMayBeObjects) {
    using ByObject = NonPersistentDictionary<SO<const SharedObj>, int>;
    const SO<ByObject> dictionary(new ByObject);
    SO<const SharedObj> key(new SharedObj);
    dictionary->insert(key, 3);
    EXPECT_EQ(key->references(), 2);
    EXPECT_EQ(*dictionary->find(key), 3);
    dictionary->remove(key);
    EXPECT_EQ(key->references(), 1);
}

} // namespace
