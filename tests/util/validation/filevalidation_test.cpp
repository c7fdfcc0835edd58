#include <zmt/util/validation/filevalidation.h>

#include <gtest/gtest.h>

#include "../../core/terrain/geometry/grid/functionband.h"
#include "../../core/terrain/geometry/grid/writtenterrain.h"
#include "support/cancelingdisplay.h"
#include "support/recordedreports.h"
#include "support/webtest.h"
#include "validatedbytes.h"

namespace {

using namespace Validated;
using ZMT::CORE::AsyncFile;
using ZMT::UTIL::FileValidation;

Bytes terrainBytes() {
    return writtenTerrain(new FunctionBand(60, 45, FunctionBand::hillsWithHoles), 3);
}

class ValidationFromServer : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        // Nothing here is silent, however busy the machine is.
        ZMT::CORE::IMPL::httpTimes().silenceMilliseconds = 2000;
    }
    ValidationReport validated(const Bytes & bytes) {
        server_.setFile("/t.ztt", std::string(bytes.begin(), bytes.end()), "\"a\"");
        const NBX::SO<AsyncFile> file = AsyncFile::create(server_.url("/t.ztt"));
        if (!file) return {};
        server_.resetCounts();
        return FileValidation::run(*file);
    }
};

} // namespace

TEST(FileValidation, OtherFilesAreToldAsSuch) {
    EXPECT_EQ(faults({}), "0: the file ends inside of its magic\n");
    EXPECT_EQ(faults(Bytes(7)), "0: the file ends inside of its magic\n");
    EXPECT_EQ(report(Bytes(1000)).faultCount, 1U);
    EXPECT_EQ(report(Bytes(1000)).format, ValidationReport::F_Unknown);
    EXPECT_NE(faults(Bytes(1000)).find("0: no streaming terrain"), std::string::npos);
}

TEST(FileValidation, NothingIsReported) {
    RecordedReports reports;
    const Bytes sound = terrainBytes();
    for (std::size_t i = 0; i < sound.size(); i += 61) {
        Bytes bytes = sound;
        bytes[i] ^= 0x55;
        report(bytes);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(FileValidation, ACancelledCheckIsNotSound) {
    const Bytes bytes = terrainBytes();
    const CancelingDisplay display;
    const ValidationReport found = report(bytes);
    EXPECT_TRUE(found.isCancelled);
    EXPECT_FALSE(found.isSound());
    EXPECT_EQ(found.tiles, 0U);
}

TEST(FileValidation, LocalFilesAreRead) {
    const Bytes bytes = terrainBytes();
    const std::string path = NBX::File::temporaryFileName("validated-");
    NBX::File(path, NBX::WM_Create).write(bytes.data(), bytes.size());
    const NBX::SO<AsyncFile> file = AsyncFile::create(NBX::StringUtils::Utf8String2WString(path), true);
    ASSERT_TRUE(file);
    const ValidationReport found = FileValidation::run(*file);
    EXPECT_TRUE(found.isSound()) << text(found);
    EXPECT_EQ(found.tiles, report(bytes).tiles);
}

TEST_F(ValidationFromServer, FilesOnServersAreCheckedAlike) {
    Bytes bytes = terrainBytes();
    const ValidationReport sound = validated(bytes);
    EXPECT_TRUE(sound.isSound()) << text(sound);
    EXPECT_EQ(sound.tiles, report(bytes).tiles);
    // Each block once, several at a time.
    EXPECT_LE(server_.requests(), sound.tiles + 2);
    EXPECT_GT(server_.mostAtOnce(), 1U);
    bytes[300] ^= 1;
    EXPECT_EQ(text(validated(bytes)), faults(bytes));
}

TEST_F(ValidationFromServer, MomentsOfAServerAreNoFaults) {
    HttpAnswer broken;
    broken.status = 503;
    broken.reason = "Service Unavailable";
    const Bytes bytes = terrainBytes();
    server_.setFile("/t.ztt", std::string(bytes.begin(), bytes.end()), "\"a\"");
    const NBX::SO<AsyncFile> file = AsyncFile::create(server_.url("/t.ztt"));
    ASSERT_TRUE(file);
    server_.then({});
    server_.then(broken);
    const ValidationReport found = FileValidation::run(*file);
    EXPECT_TRUE(found.isSound()) << text(found);
}

TEST_F(ValidationFromServer, AServerThatFailsEndsTheCheck) {
    HttpAnswer broken;
    broken.status = 503;
    broken.reason = "Service Unavailable";
    const Bytes bytes = terrainBytes();
    server_.setFile("/t.ztt", std::string(bytes.begin(), bytes.end()), "\"a\"");
    const NBX::SO<AsyncFile> file = AsyncFile::create(server_.url("/t.ztt"));
    ASSERT_TRUE(file);
    for (int i = 0; i < 12; ++i)
        server_.then({});
    server_.always(broken);
    const ValidationReport found = FileValidation::run(*file);
    EXPECT_EQ(found.faultCount, 4U) << text(found);
    EXPECT_NE(text(found).find("bytes cannot be read: "), std::string::npos);
    EXPECT_NE(text(found).find("503"), std::string::npos);
    EXPECT_NE(text(found).find("too much cannot be read; the rest is not checked"), std::string::npos);
    EXPECT_LT(server_.requests(), 60U);
}
