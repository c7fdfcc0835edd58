// Checks of streaming files, as a user of the program makes them.

#include <algorithm>
#include <filesystem>
#include <random>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/object/stringutils.h>

#include "datafiles.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"

namespace {

class Validate : public ::testing::Test {
protected:
    RunResult zmt(const std::vector<std::string> & arguments, const RunLimits & limits = {}) const {
        return runProcess(ZMT_EXECUTABLE, arguments, folder, limits);
    }
    std::string built(const std::vector<std::string> & arguments, const std::string & name) const {
        std::vector<std::string> all = {"build"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        all.push_back(folder.out(name));
        const RunResult run = zmt(all);
        EXPECT_EQ(0, run.status) << run.errors;
        return folder.out(name);
    }
    std::string terrain(const std::string & lighting = "none") const {
        SmallGeoTiff tiff{61, 47};
        for (unsigned i = 0; i < 61 * 47; ++i)
            tiff.heights.push_back(float(800 + i * 37 % 101));
        return built(
            {"terrain", folder.write("heights.tif", tiff.encode()), "--level", "4", "--lighting", lighting},
            "t.ztt");
    }
    /// Heights that do not deflate.
    std::string noise(unsigned level) const {
        SmallGeoTiff tiff{600, 500};
        std::mt19937 random(1);
        for (unsigned i = 0; i < 600 * 500; ++i)
            tiff.heights.push_back(float(random() % 60000));
        return built({"terrain", folder.write("noise.tif", tiff.encode()), "--level", std::to_string(level),
                      "--lighting", "none"},
                     "noise.ztt");
    }
    /// A copy with another byte.
    std::string damaged(const std::string & path, std::size_t offset) const {
        std::string bytes = readWhole(path);
        bytes.at(offset) = static_cast<char>(bytes[offset] ^ 0x40);
        return folder.write("damaged.ztt", bytes);
    }

    RunFolder folder;
};

TEST_F(Validate, SoundFilesGetOneLine) {
    const std::string heights = terrain("static");
    const RunResult run = zmt({"validate", heights});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("", run.errors);
    EXPECT_EQ(run.output, heights + ": sound; streaming terrain, tiles: 17, levels: 3, bytes: " +
                              std::to_string(readWhole(heights).size()) + ", light map of 17 tiles\n");
    const std::string key = "0x123456789abcdef0";
    const std::string ground = built({"terrain", s_everestHeights, "--lighting", "none"}, "g.ztt");
    const std::string texture =
        built({"texture", s_everestImage, "--terrain", ground, "--key", key}, "t.zts");
    EXPECT_EQ(1, zmt({"validate", texture}).status);
    const RunResult keyed = zmt({"validate", texture, "--key", key});
    EXPECT_EQ(0, keyed.status) << keyed.output << keyed.errors;
}

TEST_F(Validate, TexturesAndPyramidsAreToldByContent) {
    const std::string ground = built({"terrain", s_everestHeights, "--lighting", "none"}, "g.ztt");
    const std::string texture = built(
        {"texture", s_everestImage, "--terrain", ground, "--format", "dxt1", "--tile", "256"}, "other.name");
    const RunResult run = zmt({"validate", texture});
    EXPECT_EQ(0, run.status) << run.output << run.errors;
    EXPECT_NE(run.output.find(": sound; streaming texture, tiles: "), std::string::npos) << run.output;
    const std::string pyramid = built({"pyramid", s_everestImage}, "p.name");
    const RunResult other = zmt({"validate", pyramid});
    EXPECT_EQ(0, other.status) << other.output << other.errors;
    EXPECT_NE(other.output.find(": sound; texture pyramid, tiles: "), std::string::npos) << other.output;
}

TEST_F(Validate, EachFaultIsALine) {
    const std::string path = damaged(terrain(), 120);
    const RunResult run = zmt({"validate", path});
    EXPECT_EQ(1, run.status);
    EXPECT_EQ(run.output, "offset 120: a byte that has no meaning is not zero\n");
    EXPECT_EQ(run.errorLines().size(), 1U) << run.errors;
    EXPECT_NE(run.errors.find(path + ": has a fault; get it anew"), std::string::npos) << run.errors;
}

TEST_F(Validate, ManyFaultsAreCounted) {
    // All tiles that are stored plain, since they are noise, say another level.
    std::string bytes = readWhole(noise(7));
    unsigned changes = 0;
    for (std::size_t at = 0; (at = bytes.find("ZMT-AQGP", at)) != std::string::npos; at += 8, ++changes)
        bytes[at + 60] = 1;
    const RunResult run = zmt({"validate", folder.write("many.ztt", bytes)});
    EXPECT_EQ(1, run.status);
    ASSERT_GT(changes, 5U);
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), changes) << run.output;
    EXPECT_NE(run.errors.find("has " + std::to_string(changes) + " faults"), std::string::npos) << run.errors;
}

TEST_F(Validate, JsonHasAll) {
    const std::string path = terrain("normals");
    const RunResult sound = zmt({"validate", path, "--json"});
    EXPECT_EQ(0, sound.status) << sound.errors;
    const auto good = nlohmann::json::parse(sound.output);
    EXPECT_EQ(good["file"], path);
    EXPECT_EQ(good["format"], "streaming terrain");
    EXPECT_EQ(good["sound"], true);
    EXPECT_EQ(good["fault_count"], 0);
    EXPECT_TRUE(good["faults"].is_array() && good["faults"].empty());
    EXPECT_EQ(good["blocks"], 34);
    EXPECT_EQ(good["light_blocks"], 17);
    EXPECT_EQ(good["levels"], 3);
    EXPECT_EQ(good["bytes"], readWhole(path).size());

    const RunResult wrong = zmt({"validate", damaged(path, 200), "--json"});
    EXPECT_EQ(1, wrong.status);
    const auto bad = nlohmann::json::parse(wrong.output);
    EXPECT_EQ(bad["sound"], false);
    EXPECT_EQ(bad["fault_count"], 1);
    EXPECT_EQ(bad["faults"][0]["offset"], 200);
    EXPECT_EQ(bad["faults"][0]["what"], "a byte that has no meaning is not zero");

    const RunResult other = zmt({"validate", folder.in("heights.tif"), "--json"});
    EXPECT_EQ(1, other.status);
    EXPECT_TRUE(nlohmann::json::parse(other.output)["format"].is_null());
}

TEST_F(Validate, CitiesAreCheckedWithTheirPagingFiles) {
    const std::string city = folder.out("p.city"), textures = folder.out("p.1.opaque.city");
    ASSERT_EQ(0, zmt({"build", "city", ZMT_DATA_DIR "/../tests/data/models/prism.obj", "--up", "z", "--at",
                      "370000,5800000,40", "--system", "EPSG:32633", "--atlas-size", "64", "--format",
                      "rgba8", "--out", city})
                     .status);
    const std::string scene = readWhole(city), blocks = readWhole(textures);
    const RunResult sound = zmt({"validate", city});
    EXPECT_EQ(0, sound.status) << sound.errors;
    EXPECT_EQ(city + ": sound; city, textures: 1, levels: 1, bytes: " +
                  std::to_string(scene.size() + blocks.size()) + "\n",
              sound.output);
    std::filesystem::resize_file(textures, blocks.size() - 1);
    const RunResult cut = zmt({"validate", city});
    EXPECT_EQ(1, cut.status);
    EXPECT_EQ(cut.output,
              "p.1.opaque.city, offset 0: source texture 0 of node 1 ends behind the end of the file; get "
              "the file anew, it was cut\n");
    EXPECT_EQ(1U, cut.errorLines().size()) << cut.errors;
    EXPECT_NE(std::string::npos, cut.errors.find(city + ": has a fault; get it anew, or build it again"));
    const auto json = nlohmann::json::parse(zmt({"validate", city, "--json"}).output);
    EXPECT_EQ("city", json["format"]);
    EXPECT_EQ(textures, json["faults"][0]["file"]);
    EXPECT_EQ(0, json["blocks"]);
    std::filesystem::remove(textures);
    const RunResult missing = zmt({"validate", city});
    EXPECT_EQ(1, missing.status);
    EXPECT_EQ(1U, missing.errorLines().size()) << missing.errors;
    EXPECT_NE(std::string::npos, missing.output.find("p.1.opaque.city, offset 0: cannot be opened"))
        << missing.output;
    const RunResult half = zmt({"validate", folder.write("half.city", scene.substr(0, scene.size() / 2))});
    EXPECT_EQ(1, half.status);
    EXPECT_NE(std::string::npos, half.output.find("offset 0: the scene cannot be read")) << half.output;

    ScriptedHttpServer server;
    server.setFile("/p.city", scene);
    server.setFile("/p.1.opaque.city", blocks);
    const std::string url =
        "http://me:secret@" + NBX::StringUtils::WString2Utf8String(server.url("/p.city")).substr(7);
    const RunResult onServer = zmt({"validate", url});
    EXPECT_EQ(0, onServer.status) << onServer.output << onServer.errors;
    server.setFile("/p.1.opaque.city", blocks.substr(1));
    const RunResult cutOnServer = zmt({"validate", url, "--json"});
    EXPECT_EQ(1, cutOnServer.status);
    EXPECT_EQ(std::string::npos, (cutOnServer.output + cutOnServer.errors).find("secret"));
}

TEST_F(Validate, WhatCannotBeOpenedIsTold) {
    for (const std::string & path : {folder.in("nothing.ztt"), folder.in("")}) {
        const RunResult run = zmt({"validate", path});
        EXPECT_EQ(1, run.status);
        EXPECT_EQ(run.errorLines().size(), 1U) << run.errors;
        EXPECT_EQ("", run.output);
    }
    EXPECT_EQ(2, zmt({"validate"}).status);
    EXPECT_EQ(2, zmt({"validate", "a", "b"}).status);
    EXPECT_EQ(2, zmt({"validate", "a", "--key", "x"}).status);
    EXPECT_EQ(1, zmt({"validate", folder.write("empty.ztt", "")}).status);
}

TEST_F(Validate, FilesOnServersAreChecked) {
    const std::string path = terrain("static");
    ScriptedHttpServer server;
    server.setFile("/t.ztt", readWhole(path));
    server.setFile("/d.ztt", readWhole(damaged(path, 120)));
    const auto url = [&](const std::string & name) {
        return NBX::StringUtils::WString2Utf8String(server.url(name));
    };
    const RunResult sound = zmt({"validate", url("/t.ztt")});
    EXPECT_EQ(0, sound.status) << sound.output << sound.errors;
    EXPECT_NE(sound.output.find("/t.ztt: sound; streaming terrain, tiles: 17"), std::string::npos);
    EXPECT_EQ("offset 120: a byte that has no meaning is not zero\n",
              zmt({"validate", url("/d.ztt")}).output);
    HttpAnswer nothing;
    nothing.status = 404;
    nothing.reason = "Not Found";
    server.always(nothing);
    const RunResult missing = zmt({"validate", url("/other.ztt")});
    EXPECT_EQ(1, missing.status);
    EXPECT_NE(missing.errors.find("404"), std::string::npos) << missing.errors;
}

TEST_F(Validate, ACheckCanBeCancelled) {
    // The server falls silent, so that the check is under way when the signal comes.
    ScriptedHttpServer server;
    server.setFile("/t.ztt", readWhole(terrain()));
    for (int i = 0; i < 4; ++i)
        server.then({});
    HttpAnswer silent;
    silent.silentAfter = -1;
    server.always(silent);
    RunLimits limits;
    limits.interruptWhenIn = folder.path() / "out";
    limits.signalDelay = std::chrono::milliseconds(2000);
    const RunResult run =
        zmt({"validate", NBX::StringUtils::WString2Utf8String(server.url("/t.ztt"))}, limits);
    EXPECT_EQ(1, run.status);
    EXPECT_EQ("", run.output);
    EXPECT_NE(run.errors.find("cancelled"), std::string::npos) << run.errors;
    EXPECT_LT(run.secondsAfterSignal, 0.5);
}

} // namespace
