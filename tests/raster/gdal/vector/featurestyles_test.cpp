#include "raster/gdal/vector/featurestyles.h"

#include <gtest/gtest.h>

#include "raster/gdal/vector/writtenfeatures.h"

namespace {

using namespace ZMT::RASTER;

class FeatureStylesTest : public testing::Test {
protected:
    FeatureStylesTest() : definition_(new OGRFeatureDefn("things")) {
        OGRFieldDefn name("name", OFTString), title("title", OFTString);
        definition_->AddFieldDefn(&name);
        definition_->AddFieldDefn(&title);
        definition_->Reference();
    }
    ~FeatureStylesTest() override { definition_->Release(); }

    std::string specification(const std::string & style, double metres = 0.0) {
        OGRFeature feature(definition_);
        feature.SetField("title", "Lhotse");
        feature.SetStyleString(style.c_str());
        return FeatureStyles(metres).of(feature);
    }

private:
    OGRFeatureDefn * definition_;
};

TEST_F(FeatureStylesTest, ToolsBecomeKeysAndValues) {
    const struct {
        const char *style, *expected;
    } cases[] = {
        {"", ""},
        {"PEN(c:#FF0000,w:2px)", "color=#FF0000, width=2"},
        {"PEN(c:#FF000080,w:5g)", "color=#FF000080, width=10m"},
        {"PEN(w:0.56mm)", "color=#000000, width=2"},
        {"PEN(c:#00FF00, w:1pt, p:\"4px 2px\")", "color=#00FF00, width=1.26, dash=4 2"},
        {"PEN(c:#00FF00,id:\"ogr-pen-1\")", ""},
        {"BRUSH(fc:#0000FF40)", "fill=#0000FF40"},
        {"BRUSH(fc:#0000FF,id:\"ogr-brush-1\")", ""},
        {"BRUSH(fc:#0000FF);PEN(c:#FFFFFF,w:1px)", "fill=#0000FF, color=#FFFFFF, width=1"},
        {"SYMBOL(id:\"ogr-sym-5\",c:#112233,s:12px)", "symbol=square, color=#112233, size=12"},
        {"SYMBOL(id:\"my,own,ogr-sym-99\",c:#112233)", "symbol=circle, color=#112233"},
        {"LABEL(t:\"{name}\",s:14px,c:#445566,o:#FFFFFF)",
         "label=name, label-size=14, label-color=#445566, halo=1.5, halo-color=#FFFFFF"},
        {"LABEL(t:\"Lhotse\")", "label=title"},
        {"LABEL(t:\"Everest\")", ""},
        {"LABEL(t:\"{a=b, c}\")", ""},
        {"PEN(c:#FF0000,w:1px);PEN(c:#00FF00,w:9px)", "color=#FF0000, width=1"},
        {"PEN(c:red,w:-3px)", "color=#000000"},
        {"PEN(c:#FF0000,w:nan)", "color=#FF0000"},
        {"PEN(", ""},
        {"nothing", ""},
        {"PEN(c:#FF0000,p:\"", "color=#FF0000"},
        {"@missing", ""},
    };
    for (const auto & c : cases)
        EXPECT_EQ(specification(c.style, 2.0), c.expected) << c.style;
    EXPECT_EQ(specification("PEN(c:#FF0000,w:5g)"), "color=#FF0000") << "degrees are no lengths";
}

TEST_F(FeatureStylesTest, StylesThatRepeatAreKnown) {
    FeatureStyles styles(0.0);
    OGRFeatureDefn definition("things");
    definition.Reference();
    OGRFeature feature(&definition);
    EXPECT_EQ(styles.of(feature), "");
    feature.SetStyleString("PEN(c:#FF0000)");
    const std::string * first = &styles.of(feature);
    EXPECT_EQ(first, &styles.of(feature));
    for (unsigned i = 0; i < 10000; ++i) {
        feature.SetStyleString(("PEN(c:#FF0000,w:" + std::to_string(i + 1) + "px)").c_str());
        EXPECT_EQ(styles.of(feature), "color=#FF0000, width=" + std::to_string(i + 1));
    }
}

} // namespace
