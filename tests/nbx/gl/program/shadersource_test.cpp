#include <nbx/gl/program/shadersource.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include <nbx/data/objectloader.h>

#include "support/recordedreports.h"
#include "support/temporaryfolder.h"

namespace {

using namespace NBX;
using GL2::ShaderSource;

/// A path in the folder for temporary files.
std::string path(const char * name) {
    return std::string(std::getenv("TMPDIR")) + "/" + name;
}

SO<ShaderSource> read(const std::string & path) {
    return soCast<ShaderSource>(ObjectLoader::readFile(path, ShaderSource::ClassNameNBX(), true));
}

TEST(ShaderSource, IsTheTextOfItsFile) {
    const TemporaryFolder folder;
    const std::string text = "void main() {\n    gl_FragColor = vec4(1.0);\n}\n";
    std::ofstream(path("a.glsl")) << text;
    std::ofstream(path("empty.glsl"));
    ASSERT_TRUE(read(path("a.glsl")));
    EXPECT_EQ(text, read(path("a.glsl"))->text());
    ASSERT_TRUE(read(path("empty.glsl")));
    EXPECT_EQ("", read(path("empty.glsl"))->text());
}

TEST(ShaderSource, WhatIsNoTextIsReported) {
    RecordedReports reports;
    const TemporaryFolder folder;
    std::ofstream(path("zero.glsl")) << std::string(5, '\0');
    std::ofstream(path("long.glsl")) << std::string(ShaderSource::s_maxBytes + 1, ' ');
    std::ofstream(path("text.txt")) << "void main() {}";
    for (const char * name : {"zero.glsl", "long.glsl", "text.txt", "missing.glsl"})
        EXPECT_FALSE(read(path(name))) << name;
    EXPECT_EQ(4u, reports.size()) << reports;
}

} // namespace
