// The coordinate system beside a terrain on a web server.

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include "support/recordedreports.h"
#include "support/webtest.h"
#include "writtenterrain.h"

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;

namespace {

class ProjectionOfServerTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        const NBX::SO<FunctionBand> band(new FunctionBand(17, 17, FunctionBand::hills));
        const std::vector<std::uint8_t> bytes = writtenTerrain(band, 2);
        server_.setFile("/a.ztt", std::string(bytes.begin(), bytes.end()));
        terrain_ = AsyncGridTerrain::load(server_.url("/a.ztt"));
        ASSERT_TRUE(terrain_);
    }
    void TearDown() override {
        terrain_ = nullptr;
        WebTest::TearDown();
    }

    NBX::SO<AsyncGridTerrain> terrain_;
};

TEST_F(ProjectionOfServerTest, IsReadWhereThereIsOne) {
    const RecordedReports reports;
    server_.setFile("/a.prj", "LOCAL_CS[\"x\"]");
    EXPECT_EQ(terrain_->wkt(), "LOCAL_CS[\"x\"]");
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(ProjectionOfServerTest, IsNoneWithoutAWordWhereNothingIs) {
    const RecordedReports reports;
    EXPECT_EQ(terrain_->wkt(), "");
    for (const int status : {403, 404, 410, 416}) {
        HttpAnswer answer;
        answer.status = status;
        answer.reason = "No";
        server_.always(answer);
        IMPL::AsyncFileManager::instance().backoff() = {};
        EXPECT_EQ(terrain_->wkt(), "") << status;
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

/// A terrain without its system lies beside what has one.
TEST_F(ProjectionOfServerTest, OfAServerThatFailsIsReported) {
    RecordedReports reports;
    server_.setFile("/a.prj", "LOCAL_CS[\"x\"]");
    HttpAnswer answer;
    answer.status = 500;
    answer.reason = "Oops";
    server_.always(answer);
    EXPECT_EQ(terrain_->wkt(), "");
    ASSERT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.count(2, L"projection",
                            L"the coordinate system beside the terrain cannot be read, and counts as none: "
                            L"server '127.0.0.1' answered 500 Oops: " +
                                server_.url("/a.prj") + L"; try again"),
              1U)
        << reports;
}

TEST_F(ProjectionOfServerTest, ThatIsTooLargeForOneIsReported) {
    const RecordedReports reports;
    server_.setFile("/a.prj", std::string((1U << 20U) + 1, ' '));
    EXPECT_EQ(terrain_->wkt(), "");
    EXPECT_EQ(reports.size(), 1U) << reports;
}

/// Whether there is a system nobody knows: the server was asked for something else, and is left alone since.
TEST_F(ProjectionOfServerTest, OfAServerThatIsLeftAloneIsReported) {
    server_.setFile("/a.prj", "LOCAL_CS[\"x\"]");
    HttpAnswer answer;
    answer.status = 404;
    answer.reason = "Gone";
    answer.lines = {"Retry-After: 60"};
    server_.always(answer);
    RecordedReports reports;
    EXPECT_FALSE(AsyncFile::create(server_.url("/other")));
    reports.clear();
    EXPECT_EQ(terrain_->wkt(), "");
    EXPECT_EQ(reports.size(), 1U) << reports;
}

} // namespace
