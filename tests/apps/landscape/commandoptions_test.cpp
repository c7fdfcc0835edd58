#include "landscape/commandoptions.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

#include <zmt/core/misc/httpsettings.h>

namespace {

using Arguments = std::vector<std::string>;

/// All options that commands share, parsed once.
struct Parsed {
    explicit Parsed(Arguments arguments) {
        CLI::App app;
        addLandscapeOptions(app, landscape);
        addViewOptions(app, view, size);
        addErrorOptions(app, errors);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(arguments);
    }

    LandscapeOptions landscape;
    View view;
    PictureSize size{64, 32};
    AllowedErrors errors;
};

TEST(CommandOptions, WithoutAnyTheDefaultsStay) {
    const Parsed parsed({});
    EXPECT_EQ(TerrainMethod::Auto, parsed.landscape.method);
    EXPECT_FALSE(parsed.landscape.lighting);
    EXPECT_FALSE(parsed.landscape.light);
    EXPECT_FALSE(parsed.landscape.shadeImages);
    EXPECT_EQ(View::Name::Overview, parsed.view.name);
    EXPECT_EQ(64U, parsed.size.width);
    EXPECT_EQ(32U, parsed.size.height);
}

TEST(CommandOptions, TextsBecomeValues) {
    const Parsed parsed({"--method",          "chunked",   "--lighting", "static",           "--light",
                         "90,30,0.5",         "--view",    "north",      "--size",           "20x10",
                         "--no-shade-images", "--image",   "a",          "--image",          "b",
                         "--fill-voids",      "--threads", "3",          "--geometry-error", "1.5"});
    EXPECT_EQ(TerrainMethod::Chunked, parsed.landscape.method);
    EXPECT_EQ(Lighting::Static, parsed.landscape.lighting);
    ASSERT_TRUE(parsed.landscape.light);
    EXPECT_EQ(0.5, parsed.landscape.light->ambient);
    EXPECT_EQ(false, parsed.landscape.shadeImages);
    EXPECT_EQ((Arguments{"a", "b"}), parsed.landscape.images);
    EXPECT_TRUE(parsed.landscape.fillVoids);
    EXPECT_EQ(3U, parsed.landscape.tree.threads);
    EXPECT_EQ(View::Name::North, parsed.view.name);
    EXPECT_EQ(20U, parsed.size.width);
    EXPECT_EQ(10U, parsed.size.height);
    EXPECT_EQ(1.5, parsed.errors.geometry);
}

TEST(CommandOptions, RedirectsToOtherServersAreFollowedOnRequest) {
    using ZMT::CORE::HttpSettings;
    Parsed({});
    EXPECT_FALSE(HttpSettings::getFollowsRedirects());
    Parsed({"--follow-redirects"});
    EXPECT_TRUE(HttpSettings::getFollowsRedirects());
    HttpSettings::setFollowsRedirects(false);
}

TEST(CommandOptions, WhatIsNoValueIsAUsageError) {
    for (const Arguments & arguments :
         {Arguments{"--method", "flat"}, Arguments{"--lighting", "neon"}, Arguments{"--light", "90"},
          Arguments{"--view", "east"}, Arguments{"--size", "20"}})
        EXPECT_THROW(Parsed{arguments}, UsageError) << arguments[0];
    EXPECT_THROW((Parsed{{"--view", "north", "--view", "north"}}), CLI::ParseError);
}

} // namespace
