#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <zmt/core/vector/vectorstylesheet.h>

#include "memoryfeatures.h"

using ZMT::CORE::VectorSize;
using ZMT::CORE::VectorStyle;
using ZMT::CORE::VectorStyleSheet;
using ZMT::RASTER::FieldValue;
using Form = VectorStyle::Symbol::Form;
using Kind = VectorStyleSheet::Kind;
using Type = ZMT::RASTER::VectorField::Type;

namespace {

VectorStyle styleOf(const std::string & specification, Kind kind, const std::string & own = "") {
    return VectorStyleSheet::parse(specification).styleOf(kind, {}, own);
}

std::string failureOf(const std::string & specification) {
    try {
        VectorStyleSheet::parse(specification);
    } catch (const NBX::InputException & e) {
        return e.what();
    }
    return "";
}

std::string failureOfFile(const std::string & text, const std::string & path = "") {
    try {
        VectorStyleSheet::parseFile(text, path);
    } catch (const NBX::InputException & e) {
        return e.what();
    }
    return "";
}

void expectColor(const NBX::Color & color, double r, double g, double b, double a) {
    EXPECT_NEAR(color[0], r, 1e-6);
    EXPECT_NEAR(color[1], g, 1e-6);
    EXPECT_NEAR(color[2], b, 1e-6);
    EXPECT_NEAR(color[3], a, 1e-6);
}

TEST(VectorStyleSheet, WithoutRulesEachKindHasItsDefault) {
    const VectorStyleSheet sheet;
    const VectorStyle line = sheet.styleOf(Kind::Line, {});
    ASSERT_TRUE(line.stroke);
    EXPECT_EQ(line.stroke->width.value, 1.5);
    EXPECT_EQ(line.stroke->width.unit, VectorSize::Unit::Pixels);
    EXPECT_EQ(line.stroke->color[3], 1.0F);
    EXPECT_LT(line.stroke->color[0], 0.3F);
    EXPECT_TRUE(line.stroke->dash.empty());
    EXPECT_FALSE(line.fill || line.symbol || line.label);

    const VectorStyle area = sheet.styleOf(Kind::Area, {});
    ASSERT_TRUE(area.fill && area.stroke);
    EXPECT_GT(area.fill->data()[3], 0.1F);
    EXPECT_LT(area.fill->data()[3], 0.5F);
    EXPECT_FALSE(area.symbol || area.label);

    const VectorStyle point = sheet.styleOf(Kind::Point, {});
    ASSERT_TRUE(point.symbol);
    EXPECT_EQ(point.symbol->form, Form::Circle);
    EXPECT_EQ(point.symbol->size.value, 6.0);
    EXPECT_FALSE(point.fill || point.stroke || point.label);
    EXPECT_TRUE(sheet.fields().empty());
}

TEST(VectorStyleSheet, ASpecificationSaysEachThing) {
    const VectorStyle area = styleOf(" color=#ff800040 , width=8m, dash=4 2.5,fill=#00ff0080, label=NAME,"
                                     "label-size=500m, label-color=navy, halo=50, halo-color=#112233, "
                                     "label-from=1:50000",
                                     Kind::Area);
    ASSERT_TRUE(area.stroke && area.fill && area.label);
    expectColor(area.stroke->color, 1.0, 128.0 / 255.0, 0.0, 64.0 / 255.0);
    EXPECT_EQ(area.stroke->width.value, 8.0);
    EXPECT_EQ(area.stroke->width.unit, VectorSize::Unit::Metres);
    EXPECT_EQ(area.stroke->dash, (std::vector<double>{4.0, 2.5}));
    expectColor(*area.fill, 0.0, 1.0, 0.0, 128.0 / 255.0);
    EXPECT_EQ(area.label->field, "NAME");
    EXPECT_TRUE(area.label->isDraped());
    EXPECT_EQ(area.label->size.value, 500.0);
    expectColor(area.label->color, 0.0, 0.0, 128.0 / 255.0, 1.0);
    EXPECT_EQ(area.label->haloWidth, 50.0);
    expectColor(area.label->haloColor, 17.0 / 255.0, 34.0 / 255.0, 51.0 / 255.0, 1.0);
    EXPECT_EQ(area.label->smallestScale, 50000.0);

    const VectorStyle point = styleOf("symbol=cross, size=20m, color=red", Kind::Point);
    ASSERT_TRUE(point.symbol);
    EXPECT_EQ(point.symbol->form, Form::Cross);
    EXPECT_EQ(point.symbol->size.unit, VectorSize::Unit::Metres);
    EXPECT_EQ(point.symbol->size.value, 20.0);
    for (const auto & [name, form] :
         {std::pair("circle", Form::Circle), std::pair("square", Form::Square),
          std::pair("diamond", Form::Diamond), std::pair("triangle", Form::Triangle)})
        EXPECT_EQ(styleOf(std::string("symbol=") + name, Kind::Point).symbol->form, form) << name;
}

TEST(VectorStyleSheet, OpacityMultipliesColorAndFill) {
    const VectorStyle style = styleOf("color=#000000, fill=#ffffff80, opacity=0.5", Kind::Area);
    EXPECT_NEAR(style.stroke->color[3], 0.5, 1e-6);
    EXPECT_NEAR(style.fill->data()[3], 0.25, 2e-3);
    EXPECT_NEAR(styleOf("opacity=0.5", Kind::Point).symbol->color[3], 0.5, 1e-6);
}

TEST(VectorStyleSheet, WhatWouldNotShowIsNotThere) {
    EXPECT_FALSE(styleOf("width=0", Kind::Line).stroke);
    EXPECT_FALSE(styleOf("color=transparent", Kind::Line).stroke);
    EXPECT_FALSE(styleOf("fill=#12345600", Kind::Area).fill);
    EXPECT_TRUE(styleOf("fill=#12345600", Kind::Area).stroke);
    EXPECT_FALSE(styleOf("size=0", Kind::Point).symbol);
    EXPECT_FALSE(styleOf("opacity=0", Kind::Area).fill);
    EXPECT_FALSE(styleOf("fill=red", Kind::Line).fill);
    EXPECT_FALSE(styleOf("symbol=square", Kind::Area).symbol);
}

TEST(VectorStyleSheet, AreasWithAColorAloneAreFilledWithAPartOfIt) {
    const VectorStyle style = styleOf("color=#ff0000", Kind::Area);
    expectColor(*style.fill, 1.0, 0.0, 0.0, 0.25);
}

TEST(VectorStyleSheet, DashesOfOddNumberAreSaidTwice) {
    EXPECT_EQ(styleOf("dash=4", Kind::Line).stroke->dash, (std::vector<double>{4.0, 4.0}));
    EXPECT_EQ(styleOf("dash=4 1 2", Kind::Line).stroke->dash,
              (std::vector<double>{4.0, 1.0, 2.0, 4.0, 1.0, 2.0}));
}

TEST(VectorStyleSheet, HalosFollowTheSizeOfLabels) {
    EXPECT_NEAR(styleOf("label=A", Kind::Point).label->haloWidth, 1.5, 1e-9);
    EXPECT_NEAR(styleOf("label=A, label-size=80m", Kind::Point).label->haloWidth, 10.0, 1e-9);
    EXPECT_EQ(styleOf("label=A, halo=0", Kind::Point).label->haloWidth, 0.0);
    EXPECT_EQ(styleOf("label=\"Name, long\"", Kind::Point).label->field, "Name, long");
}

TEST(VectorStyleSheet, WrongSpecificationsTellTheWordAndWhatMayStandThere) {
    const struct {
        const char *specification, *word, *expected;
    } cases[] = {
        {"colour=red", "\"colour=red\"", "color, width, dash"},
        {"color=#ff00", "\"color=#ff00\"", "#rrggbb"},
        {"color=#ff00zz", "\"color=#ff00zz\"", "#rrggbb"},
        {"color=mauve", "\"color=mauve\"", "orange"},
        {"width=-1", "\"width=-1\"", "8m"},
        {"width=nan", "\"width=nan\"", "8m"},
        {"width=1001", "\"width=1001\"", "1000"},
        {"width=2 m m", "\"width=2 m m\"", "8m"},
        {"width=", "\"width=\"", "8m"},
        {"dash=", "\"dash=\"", "4 2"},
        {"dash=0 2", "\"dash=0 2\"", "above 0"},
        {"dash=1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17", "17", "16"},
        {"opacity=1.1", "\"opacity=1.1\"", "0 to 1"},
        {"symbol=star", "\"symbol=star\"", "circle, square, diamond, triangle, cross"},
        {"label=", "\"label=\"", "field"},
        {"label-size=0", "\"label-size=0\"", "above 0"},
        {"label-from=50000", "\"label-from=50000\"", "1:50000"},
        {"halo=-1", "\"halo=-1\"", "0 or more"},
        {"width", "\"width\"", "width=VALUE"},
        {"color=red, color=blue", "\"color\"", "twice"},
        {"color=red,,width=2", "\"\"", "KEY=VALUE"},
        {"", "\"\"", "KEY=VALUE"},
    };
    for (const auto & [specification, word, expected] : cases) {
        const std::string failure = failureOf(specification);
        EXPECT_NE(failure.find(word), std::string::npos) << specification << ": " << failure;
        EXPECT_NE(failure.find(expected), std::string::npos) << specification << ": " << failure;
        EXPECT_EQ(failure.find('\n'), std::string::npos) << failure;
    }
}

TEST(VectorStyleSheet, TheFirstLineThatFitsWins) {
    const auto sheet = VectorStyleSheet::parseFile("# roads\n"
                                                   "\n"
                                                   "class = motorway and lanes >= 3: width=6\r\n"
                                                   "class = motorway: width=4\n"
                                                   "  \"road type\" != track : width=2\n"
                                                   "default: width=1");
    EXPECT_EQ(sheet.fields(), (std::vector<std::string>{"class", "lanes", "road type"}));
    const auto width = [&](const FieldValue & type, const FieldValue & lanes, const FieldValue & road) {
        return sheet.styleOf(Kind::Line, {type, lanes, road}).stroke->width.value;
    };
    const std::string motorway = "motorway", track = "track";
    EXPECT_EQ(width(motorway, std::int64_t(3), track), 6.0);
    EXPECT_EQ(width(motorway, std::int64_t(2), track), 4.0);
    EXPECT_EQ(width(motorway, {}, track), 4.0);
    EXPECT_EQ(width({}, {}, std::string("path")), 2.0);
    EXPECT_EQ(width({}, {}, {}), 2.0);
    EXPECT_EQ(width({}, {}, track), 1.0);
    EXPECT_EQ(sheet.ruleOf({motorway, std::int64_t(2), track}), 1U);
}

TEST(VectorStyleSheet, LegendsFindRulesAsTheyWereWritten) {
    const std::string text = "# roads\n class = 1 and  \"a b\" != 2 : width=6\ndefault: width=1";
    const auto sheet = VectorStyleSheet::parseFile(text);
    EXPECT_EQ(sheet.text(), text);
    EXPECT_EQ(sheet.rules(), 2U);
    EXPECT_EQ(sheet.filterOf(0), "class = 1 and  \"a b\" != 2");
    EXPECT_EQ(sheet.filterOf(1), "default");
    EXPECT_EQ(sheet.filterOf(2), "default");
    const auto plain = VectorStyleSheet::parse(" width=2");
    EXPECT_EQ(plain.text(), " width=2");
    EXPECT_EQ(plain.rules(), 1U);
    EXPECT_EQ(plain.filterOf(0), "default");
    EXPECT_EQ(VectorStyleSheet().text(), "");
    EXPECT_EQ(VectorStyleSheet().rules(), 1U);
}

TEST(VectorStyleSheet, WhatNoLineFitsIsNotDrawn) {
    const auto sheet = VectorStyleSheet::parseFile("a = 1: width=2\n");
    EXPECT_EQ(sheet.ruleOf({std::int64_t(2)}), VectorStyleSheet::noRule);
    const VectorStyle style = sheet.styleOf(Kind::Area, {std::int64_t(2)}, "color=red");
    EXPECT_FALSE(style.stroke || style.fill || style.symbol || style.label);
}

struct Comparison {
    const char * filter;
    FieldValue value;
    bool fits;
};

TEST(VectorStyleSheet, NumbersAreComparedAsNumbersAndTextsAsTexts) {
    const std::int64_t large = 9007199254740993; // not a double
    const Comparison cases[] = {
        {"a = 10", std::int64_t(10), true},
        {"a = 10.0", std::int64_t(10), true},
        {"a = 1e1", 10.0, true},
        {"a < 9", std::int64_t(10), false},
        {"a < 9", std::string("10"), true},
        {"a = 10", std::string("10"), true},
        {"a = 10.0", std::string("10"), false},
        {"a = \"10\"", std::int64_t(10), false},
        {"a != \"10\"", std::int64_t(10), true},
        {"a = 9007199254740993", large, true},
        {"a = 9007199254740992", large, false},
        {"a > 9007199254740992.0", large, true},
        {"a <= 9007199254740992.0", large, false},
        {"a < 2.5", std::int64_t(2), true},
        {"a > -2.5", std::int64_t(-2), true},
        {"a >= 2.5", std::int64_t(2), false},
        {"a < 1e19", std::numeric_limits<std::int64_t>::max(), true},
        {"a > -1e19", std::numeric_limits<std::int64_t>::min(), true},
        {"a >= 9223372036854775808.0", std::numeric_limits<std::int64_t>::max(), false},
        {"a > 9007199254740993", 9007199254740992.0, false},
        {"a < 9007199254740993", 9007199254740992.0, true},
        {"a <= 2", 2.5, false},
        {"a = nan", std::int64_t(1), false},
        {"a < inf", std::int64_t(1), false},
        {"a = nan", std::string("nan"), true},
        {"a < b", std::string("a"), true},
        {"a <= b", std::string("b"), true},
        {"a >= b", std::string("a"), false},
        {"a > b", std::string("c"), true},
        {"a < b", 1.0, false},
        {"a > b", 1.0, false},
        {"a != b", 1.0, true},
        {"a = \"\"", std::string(), true},
        {"a != 1", FieldValue(), true},
        {"a = 1", FieldValue(), false},
        {"a < 1", FieldValue(), false},
        {"a >= 1", FieldValue(), false},
        {"a >= -2.5", -2.5, true},
        {"a = 1", std::numeric_limits<double>::quiet_NaN(), false},
        {"a != 1", std::numeric_limits<double>::quiet_NaN(), true},
        {"a=1", std::int64_t(1), true},
        {"a>=1", std::int64_t(1), true},
        {"a = \"Rio de Janeiro: centre\"", std::string("Rio de Janeiro: centre"), true},
    };
    for (const auto & [filter, value, fits] : cases) {
        const auto sheet = VectorStyleSheet::parseFile(std::string(filter) + ": width=2");
        EXPECT_EQ(sheet.ruleOf({value}) == 0, fits) << filter;
    }
}

TEST(VectorStyleSheet, AFilterNeedsAllOfItsConditions) {
    const auto sheet = VectorStyleSheet::parseFile("a > 1 and a < 5 and b = x: width=2");
    EXPECT_EQ(sheet.fields(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(sheet.ruleOf({std::int64_t(3), std::string("x")}), 0U);
    EXPECT_EQ(sheet.ruleOf({std::int64_t(5), std::string("x")}), VectorStyleSheet::noRule);
    EXPECT_EQ(sheet.ruleOf({std::int64_t(1), std::string("x")}), VectorStyleSheet::noRule);
    EXPECT_EQ(sheet.ruleOf({std::int64_t(3), std::string("y")}), VectorStyleSheet::noRule);
    EXPECT_EQ(sheet.ruleOf({std::int64_t(3)}), VectorStyleSheet::noRule) << "a value is not there";
}

TEST(VectorStyleSheet, WrongLinesTellTheirNumber) {
    const struct {
        const char *text, *place, *expected;
    } cases[] = {
        {"default: width=1\n# c\nwidth=2", "line 3: ", "\":\""},
        {"a ~ 1: width=2", "line 1: ", "\"~\""},
        {"a == 1: width=2", "line 1: ", "\"==\""},
        {"a: width=2", "line 1: ", "\"default\""},
        {"a =: width=2", "line 1: ", "value"},
        {"= 1: width=2", "line 1: ", "field"},
        {"a = 1 or b = 2: width=2", "line 1: ", "\"or\""},
        {"a = 1 and: width=2", "line 1: ", "\"and\""},
        {"a = New York: width=2", "line 1: ", "quotes"},
        {"a = \"x: width=2", "line 1: ", "\":\""},
        {": width=2", "line 1: ", "filter"},
        {"\n\ndefault: width=2x", "line 3: ", "\"width=2x\""},
        {"default:", "line 1: ", "KEY=VALUE"},
        {"", "", "no rule"},
        {"# nothing\n", "", "no rule"},
    };
    for (const auto & [text, place, expected] : cases) {
        const std::string failure = failureOfFile(text);
        EXPECT_EQ(failure.find(place), 0U) << text << ": " << failure;
        EXPECT_NE(failure.find(expected), std::string::npos) << text << ": " << failure;
    }
    EXPECT_EQ(failureOfFile("x", "roads.style").find("roads.style: line 1: "), 0U);
}

TEST(VectorStyleSheet, WhatARuleLeavesOpenComesFromTheFeature) {
    const VectorStyle style = styleOf("width=3", Kind::Area, "color=#ff0000, width=7, fill=#00ff00");
    EXPECT_EQ(style.stroke->width.value, 3.0);
    expectColor(style.stroke->color, 1.0, 0.0, 0.0, 1.0);
    expectColor(*style.fill, 0.0, 1.0, 0.0, 1.0);
    const VectorStyle own = VectorStyleSheet().styleOf(Kind::Line, {}, "color=#ff0000, width=7, nonsense=1");
    EXPECT_EQ(own.stroke->width.value, 7.0) << "what is wrong is left out alone";
    EXPECT_FALSE(VectorStyleSheet().styleOf(Kind::Line, {}, "label=NAME").label);
    const VectorStyle label = styleOf("label=A", Kind::Point, "label-size=9m, label-color=red");
    EXPECT_FALSE(label.label->isDraped());
    expectColor(label.label->color, 1.0, 0.0, 0.0, 1.0);
}

TEST(VectorStyleSheet, StylesOfManyFeaturesAreTheirOwn) {
    const VectorStyleSheet sheet;
    for (int round = 0; round < 2; ++round)
        for (int i = 1; i <= 9000; i += 3)
            ASSERT_EQ(
                sheet.styleOf(Kind::Line, {}, "width=" + std::to_string(i % 997 + 1)).stroke->width.value,
                i % 997 + 1);
}

TEST(VectorStyleSheet, FieldsAreFoundInASourceByTheirNames) {
    const MemoryFeatures source({{"NAME", Type::Text}, {"name", Type::Text}, {"Height", Type::Real}});
    EXPECT_EQ(VectorStyleSheet::parse("label=name").fieldsOf(source), std::vector<unsigned>{1});
    EXPECT_EQ(VectorStyleSheet::parse("label=HEIGHT").fieldsOf(source), std::vector<unsigned>{2});
    EXPECT_TRUE(VectorStyleSheet().fieldsOf(source).empty());
    try {
        VectorStyleSheet::parse("label=ele").fieldsOf(source);
        FAIL();
    } catch (const NBX::InputException & e) {
        EXPECT_STREQ(e.what(), "memory: has no field \"ele\"; it has NAME, name, Height");
    }
}

TEST(VectorStyleSheet, LabelsSayTheValueOfTheirField) {
    const auto sheet = VectorStyleSheet::parseFile("a > 0: label=b\ndefault: label=a, label-size=9m");
    EXPECT_TRUE(sheet.hasDrapedLabels());
    EXPECT_TRUE(sheet.hasUprightLabels());
    const VectorStyleSheet::Values values = {std::int64_t(1), std::string("Lhotse")};
    EXPECT_EQ(sheet.labelOf(sheet.styleOf(Kind::Point, values), values), "Lhotse");
    EXPECT_EQ(sheet.labelOf(VectorStyle(), values), "");
    EXPECT_EQ(sheet.labelOf(sheet.styleOf(Kind::Point, values), {std::int64_t(1)}), "");
    EXPECT_FALSE(VectorStyleSheet::parse("label=a").hasDrapedLabels());
    EXPECT_FALSE(VectorStyleSheet::parse("label=a, label-size=9m").hasUprightLabels());
    EXPECT_FALSE(VectorStyleSheet::parse("label-size=9").hasUprightLabels());
}

TEST(VectorStyleSheet, ValuesReadAsPeopleWriteThem) {
    EXPECT_EQ(VectorStyleSheet::textOf({}), "");
    EXPECT_EQ(VectorStyleSheet::textOf(std::int64_t(-8848)), "-8848");
    EXPECT_EQ(VectorStyleSheet::textOf(100000.0), "100000");
    EXPECT_EQ(VectorStyleSheet::textOf(0.1), "0.1");
    EXPECT_EQ(VectorStyleSheet::textOf(0.0), "0");
    EXPECT_EQ(VectorStyleSheet::textOf(1e300), "1e+300");
    EXPECT_EQ(VectorStyleSheet::textOf(1e-300), "1e-300");
    EXPECT_EQ(VectorStyleSheet::textOf(-123456789012345.0), "-123456789012345");
    EXPECT_EQ(VectorStyleSheet::textOf(std::string("Ötztal")), "Ötztal");
}

TEST(VectorStyleSheet, ReachIsThatOfTheWidest) {
    EXPECT_EQ(VectorStyleSheet().reach(2.0), 32.0);
    const auto sheet = VectorStyleSheet::parseFile("a = 1: width=80m\na = 2: size=30\ndefault: width=2");
    EXPECT_EQ(sheet.reach(1.0), 80.0);
    EXPECT_EQ(sheet.reach(10.0), 300.0);
}

} // namespace
