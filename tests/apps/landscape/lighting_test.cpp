#include "landscape/lighting.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(ParseLighting, KnowsFourNames) {
    EXPECT_EQ(Lighting::Relief, parseLighting("relief"));
    EXPECT_EQ(Lighting::Vertex, parseLighting("vertex"));
    EXPECT_EQ(Lighting::Static, parseLighting("static"));
    EXPECT_EQ(Lighting::Dynamic, parseLighting("dynamic"));
    for (const char * text : {"", "Relief", "neon"})
        EXPECT_THROW(parseLighting(text), UsageError) << text;
}

} // namespace
