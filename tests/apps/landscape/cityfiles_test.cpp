// Cities on a web server that takes its time, or says nothing.

#include "landscape/citylayer.h"

#include <gtest/gtest.h>

#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/math/color.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/patience.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include "landscape/viewpoint.h"
#include "support/recordedreports.h"
#include "support/webtest.h"
#include "support/zmtrun.h"

namespace {

using NBX::SO;
using ZMT::CORE::TTTMemoryController;

class CityLayerOnAServer : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        // Who waits for the server does so for longer than a busy machine takes for a picture.
        ZMT::CORE::IMPL::httpTimes().silenceMilliseconds = 2000;
        const RunResult run =
            runProcess(ZMT_EXECUTABLE,
                       {"build", "city", std::string(ZMT_DATA_DIR) + "/../tests/data/models/prism.obj",
                        "--at", "370000.25,5800000.5,40", "--system", "EPSG:32633", "--atlas-size", "64",
                        "--out", folder_.out("p.city")},
                       folder_);
        ASSERT_EQ(0, run.status) << run.errors;
        for (const std::string & name : folder_.results())
            server_.setFile("/" + name, readWhole(folder_.out(name)));
        canvas_ = new NBX::OffscreenCanvasGL(64, 64);
        ASSERT_TRUE(canvas_->isCreated()) << "no OpenGL context";
        canvas_->setBackgroundColor(NBX::Color(1.0, 0.0, 1.0, 1.0));
    }
    void TearDown() override {
        canvas_ = nullptr;
        EXPECT_TRUE(reports_.empty()) << reports_;
        WebTest::TearDown();
    }
    CityLayer read() { return {NBX::StringUtils::WString2Utf8String(server_.url("/p.city")), CityOptions()}; }
    /// From straight above, so near that all textures are wanted. How long the picture takes.
    double draw(const CityLayer & city, int pictures = 1) {
        const NBX::Bounds box = city.box();
        const auto middle = box.center();
        const SO<NBX::SceneThing> root(new NBX::SceneThing);
        const Viewpoint viewpoint{middle + NBX::Vector3Base<double>(0.0, 8.0, 0.01), middle};
        root->append(makeCamera(viewpoint, box).get());
        root->append(city.node().get());
        canvas_->append(root.get());
        const double start = NBX::NBXTime::now();
        for (int i = 0; i < pictures; ++i) {
            WebApplication::processEvents();
            canvas_->redisplay();
        }
        const double seconds = NBX::NBXTime::now() - start;
        const SO<NBX::Image> picture = canvas_->snapshot();
        const NBX::Color color = picture->getColor(32, 32);
        EXPECT_FALSE(color[0] == 1.0F && color[1] == 0.0F && color[2] == 1.0F) << "nothing is drawn";
        canvas_->remove(root.get());
        return seconds;
    }

    const RunFolder folder_;
    RecordedReports reports_;
    SO<NBX::OffscreenCanvasGL> canvas_;
};

TEST_F(CityLayerOnAServer, NoPictureWaitsForIt) {
    server_.always({.delay = 0.1});
    const CityLayer city = read();
    city.openPagingFiles();
    const unsigned opened = server_.requests();
    EXPECT_EQ(opened, 3U) << "the length of both files, and the scene";
    server_.setHeld(true);
    EXPECT_LT(draw(city), 1.5);
    EXPECT_LT(draw(city, 3), 1.5);
    server_.setHeld(false);
    const auto controller = TTTMemoryController::getInstance();
    EXPECT_TRUE(runUntil([&] {
        draw(city);
        return controller->loadedTextures() > 0 && !controller->redisplayRequired();
    }));
    EXPECT_TRUE(controller->failures().empty());
}

TEST_F(CityLayerOnAServer, OpeningEndsWithThePatience) {
    const CityLayer city = read();
    server_.setHeld(true);
    const double start = NBX::NBXTime::now();
    {
        const ZMT::CORE::Patience patience([start] { return NBX::NBXTime::now() > start + 0.05; });
        city.openPagingFiles();
    }
    EXPECT_LT(NBX::NBXTime::now() - start, 1.5);
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_LT(draw(city, 3), 1.5) << "nobody asks again by himself";
    EXPECT_EQ(TTTMemoryController::getInstance()->failures().size(), 1U);
    reports_.clear();
    server_.setHeld(false);
}

} // namespace
