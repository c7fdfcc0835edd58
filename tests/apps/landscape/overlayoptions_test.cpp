#include "landscape/overlayoptions.h"

#include <fstream>

#include <gtest/gtest.h>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "support/zmtrun.h"

#include <nbx/object/exception.h>

namespace {

std::vector<OverlayOptions> parsed(std::vector<std::string> arguments) {
    CLI::App app;
    std::vector<OverlayOptions> overlays;
    addOverlayOptions(app, overlays);
    std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
    app.parse(arguments);
    return overlays;
}

void expectOverlay(const OverlayOptions & overlay, const char * file, const char * layer,
                   const char * style) {
    EXPECT_EQ(overlay.file, file);
    EXPECT_EQ(overlay.layer, layer);
    EXPECT_EQ(overlay.style, style);
}

TEST(OverlayOptions, AStyleIsThatOfTheFileBeforeIt) {
    const auto overlays =
        parsed({"--overlay", "a.gpkg,roads", "--style", "color=#ff0000,width=2", "--overlay", "b.gpkg",
                "--overlay", "http://host/c.geojson", "--style", "c.style"});
    ASSERT_EQ(overlays.size(), 3U);
    expectOverlay(overlays[0], "a.gpkg", "roads", "color=#ff0000,width=2");
    expectOverlay(overlays[1], "b.gpkg", "", "");
    expectOverlay(overlays[2], "http://host/c.geojson", "", "c.style");
}

TEST(OverlayOptions, AStyleWithoutAFileOrASecondOneIsRefused) {
    EXPECT_THROW(parsed({"--style", "color=#ff0000", "--overlay", "a.gpkg"}), UsageError);
    EXPECT_THROW(parsed({"--overlay", "a.gpkg", "--style", "width=1", "--style", "width=2"}), UsageError);
    EXPECT_THROW(parsed({"--overlay", "a.gpkg", "--style", ""}), UsageError);
}

TEST(OverlayOptions, CommasPartAFileAndItsLayer) {
    const RunFolder folder;
    const std::string name = folder.in("a,b.geojson");
    std::ofstream(name) << "{}";
    expectOverlay(parseOverlay(name), name.c_str(), "", "");
    expectOverlay(parseOverlay(name + ",c"), name.c_str(), "c", "");
    expectOverlay(parseOverlay("https://host/a?b=1,2,layer"), "https://host/a?b=1,2", "layer", "");
    for (const char * bad : {"", ",", "a,", ",a"})
        EXPECT_THROW(parseOverlay(bad), UsageError) << bad;
}

TEST(OverlayOptions, StylesAreFilesOrSpecifications) {
    const RunFolder folder;
    const std::string name = folder.in("a=b.style");
    std::ofstream(name) << "default: width=3\n";
    EXPECT_EQ(readStyle(name), "default: width=3\n");
    EXPECT_EQ(readStyle("width=3"), "width=3");
    EXPECT_THROW(readStyle(folder.in("none.style")), NBX::IOException);
    EXPECT_THROW(readStyle(folder.in("")), NBX::IOException);
    const std::string large = folder.in("large.style");
    std::ofstream(large) << std::string((1U << 20U) + 1, ' ');
    EXPECT_THROW(readStyle(large), DataError);
}

} // namespace
