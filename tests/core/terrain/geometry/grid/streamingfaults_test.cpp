// A terrain and a texture whose reads fail for a while, each in its own way: nobody is asked in a storm, the
// picture has no hole, and it becomes complete by itself. Web servers and the clocks of the tiles run five
// times as fast as for users.

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

#include "core/file/readengine.h"
#include "core/terrain/geometry/grid/asyncgridterrainrequests.h"
#include "core/terrain/texture/streaming/texturetransfers.h"
#include "streamedview.h"
#include <support/imagecompare.h>
#include <support/recordedreports.h>
#include <support/scriptedfilecalls.h>
#include <support/steppedclock.h>
#include <support/temporaryfolder.h>
#include <support/webtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

/// Times of servers go faster, and the machine may be busy.
constexpr double s_busy = 4.0;

/// Pictures of the whole view from above, where nothing but ground is to be seen.
class PicturesFromAbove {
public:
    PicturesFromAbove() : canvas_(new NBX::OffscreenCanvasGL(48, 48)), root_(new NBX::SceneThing) {
        EXPECT_TRUE(canvas_->isCreated());
        canvas_->append(root_.get());
        canvas_->setBackgroundColor(NBX::Color(1.0, 0.0, 1.0, 1.0));
        TerrainPainterGLSettings::setGeometryError(1.0);
        TerrainPainterGLSettings::setTextureError(1.0);
    }
    ~PicturesFromAbove() {
        TerrainPainterGLSettings::setGeometryError(3.0);
        TerrainPainterGLSettings::setTextureError(2.0);
    }
    PicturesFromAbove(const PicturesFromAbove &) = delete;
    PicturesFromAbove & operator=(const PicturesFromAbove &) = delete;

    /// What there is now, in as many pictures as making textures of it takes.
    SO<NBX::Image> of(const StreamedView & view, unsigned pictures) {
        show(view);
        canvas_->setRenderingMode(1);
        for (unsigned i = 0; i < pictures; ++i)
            canvas_->redisplay();
        isPending = canvas_->redisplayPending();
        return taken();
    }
    /// Waits for everything.
    SO<NBX::Image> complete(const StreamedView & view) {
        show(view);
        canvas_->setRenderingMode(0);
        canvas_->redisplay();
        return taken();
    }
    static unsigned holes(const NBX::Image & image) {
        unsigned count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const NBX::Color color = image.getColor(x, y);
                count += color[0] == 1.0F && color[1] == 0.0F && color[2] == 1.0F;
            }
        return count;
    }

    bool isPending = false;

private:
    void show(const StreamedView & view) {
        const NBX::Bounds box = view.terrain->geoBoundingBox();
        const NBX::Vector3Base<double> top = box.center() + NBX::Vector3Base<double>(0.0, 400.0, 0.0);
        const auto eye = SO<NBX::LookAt>(new NBX::LookAt(top, box.center(), {0.0, 0.0, 1.0}));
        const SO<NBX::Perspective> narrow(new NBX::Perspective(5.0, 1.0, 2000.0));
        using Textures = NBX::Array<SO<TerrainTexture>>;
        const SO<Textures> textures(new Textures(std::vector<SO<TerrainTexture>>{view.texture}));
        root_->clear();
        root_->append(new NBX::Camera(eye.get(), narrow.get()));
        root_->append(new DecalTerrainTexturingEffect(textures.get()));
        root_->append(view.terrain.get());
    }
    /// Without anything of the view, which goes before the canvas.
    SO<NBX::Image> taken() {
        root_->clear();
        return canvas_->snapshot();
    }

    SO<NBX::OffscreenCanvasGL> canvas_;
    SO<NBX::SceneThing> root_;
};

/// The clocks of the tiles and of the textures, which go on as `now` says.
class TileClock {
public:
    explicit TileClock(double (*now)()) {
        struct Clock : NBX::Clock {
            explicit Clock(double (*now)()) : now_(now) {}
            NBX::NBXTime now() const override { return now_(); }
            void sleepUntil(const NBX::NBXTime &) override {}
            double (*now_)();
        };
        AsyncGridTerrainRequests::setClock(now);
        TextureTransfers::setClock(new Clock(now));
    }
    ~TileClock() {
        AsyncGridTerrainRequests::setClock(nullptr);
        TextureTransfers::setClock(nullptr);
    }
    TileClock(const TileClock &) = delete;
    TileClock & operator=(const TileClock &) = delete;
};

/// What all faults have in common: what is told of them, and the picture at their time and behind them.
class Faults {
public:
    /// `seconds` tells the time by which users count.
    Faults(double (*seconds)(), std::function<void()> pause)
        : seconds_(seconds), pause_(std::move(pause)), clock_(seconds) {
        StreamedView whole([] {});
        const SO<AsyncFile> file = memoryFile(StreamedFiles::terrain());
        whole.terrain = AsyncGridTerrain::load(file);
        const std::string path = NBX::File::temporaryFileName("texture-");
        StreamedFiles::writeTexture(path);
        whole.texture = NBX::soCast<AsyncQuadtreeTerrainTexture_Impl>(
            AsyncQuadtreeTerrainTexture::load(memoryFile(NBX::File::contents(path)), 0, 0));
        expected_ = pictures_.complete(whole);
        EXPECT_EQ(0U, pictures_.holes(*expected_));
    }

    /// A view whose first picture is there, and all else on its way. For so many seconds reads fail by
    /// `begin`; `end` brings back what was.
    void expectHealed(const std::string & name, const std::wstring & terrain, const std::wstring & texture,
                      double seconds, const std::function<void()> & begin,
                      const std::function<void()> & end) {
        SCOPED_TRACE(name);
        StreamedView view(pause_);
        ASSERT_TRUE(view.open(terrain, texture)) << NBX::StringUtils::WString2Utf8String(view.problem);
        ASSERT_TRUE(view.texture->root()->get(1.0, true));
        begin();
        for (const double until = seconds_() + seconds; seconds_() < until;)
            EXPECT_FALSE(view.frame());
        const SO<NBX::Image> meanwhile = pictures_.of(view, 3);
        EXPECT_EQ(0U, pictures_.holes(*meanwhile));
        EXPECT_TRUE(pictures_.isPending);
        end();
        const double ended = seconds_();
        while (!view.frame() && seconds_() - ended < s_busy * s_healed) {
        }
        EXPECT_EQ(0U, view.missing) << "behind " << s_healed << " s";
        EXPECT_EQ(StreamedFiles::tiles, view.tiles);
        EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
        EXPECT_TRUE(AsyncQuadtreeTerrainTexture::readFailures().empty());
        const SO<NBX::Image> healed = pictures_.of(view, 30);
        EXPECT_FALSE(pictures_.isPending);
        EXPECT_EQ(0.0, compareImages(*healed, *expected_, 0.5).share);
    }

private:
    double (*seconds_)();
    std::function<void()> pause_;
    TileClock clock_;
    PicturesFromAbove pictures_;
    SO<NBX::Image> expected_;
};

// --- web servers

constexpr double s_speed = 5.0;

/// As many seconds as go by for the tiles.
double fastSeconds() {
    static const double begin = NBX::NBXTime::now();
    return begin + s_speed * (NBX::NBXTime::now() - begin);
}

class WebFaultsTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        IMPL::HttpTimes & times = IMPL::httpTimes();
        const IMPL::HttpTimes slow;
        times.silenceMilliseconds = static_cast<int>(slow.silenceMilliseconds / s_speed);
        times.slowSeconds = slow.slowSeconds / s_speed;
        times.firstPause = slow.firstPause / s_speed;
        times.longestPause = slow.longestPause / s_speed;
        GeoTransformation::setNBXOrigin({});
        const Bytes terrain = StreamedFiles::terrain();
        server_.setFile("/a.ztt", std::string(terrain.begin(), terrain.end()));
        const std::string path = NBX::File::temporaryFileName("texture-");
        StreamedFiles::writeTexture(path);
        const Bytes texture = NBX::File::contents(path);
        server_.setFile("/a.zts", std::string(texture.begin(), texture.end()));
    }

    void expectHealed(const std::string & name, const HttpAnswer & answer) {
        unsigned before = 0;
        faults_.expectHealed(
            name, server_.url("/a.ztt"), server_.url("/a.zts"), answer.silentAfter ? 2.5 : 1.5,
            [&] {
                before = server_.requests();
                server_.always(answer);
            },
            [&] {
                // What was under way at first, right or wrong; then the host, or each file, is left alone for
                // 0.25, 0.5 and 1 s, and tried once each time. The network class tries a connection anew that
                // ends without an answer.
                EXPECT_GE(before + (answer.dropAfter == -1 ? 24 : 14), server_.requests()) << name;
                server_.always({});
            });
    }

    const TemporaryFolder folder_;
    RecordedReports reports_; ///< of bodies that are too long
    Faults faults_{fastSeconds, [] { AsyncFile::wait(10.0); }};
};

TEST_F(WebFaultsTest, ConnectionsThatEnd) {
    expectHealed("without an answer", {.dropAfter = -1});
    expectHealed("amid the body", {.dropAfter = 50});
}

TEST_F(WebFaultsTest, SilenceAndDrips) {
    expectHealed("silence", {.silentAfter = -1});
    expectHealed("silence amid the body", {.silentAfter = 50});
    expectHealed("a byte a second", {.secondsPerByte = 1.0 / s_speed});
}

TEST_F(WebFaultsTest, AnswersToOtherQuestions) {
    expectHealed("the whole file", {.isWholeFile = true});
    expectHealed("another range", {.contentRange = "bytes 1-50/12345"});
    expectHealed("another total", {.total = "12345"});
    expectHealed("an unknown total", {.total = "*"});
    expectHealed("no range", {.contentRange = ""});
    expectHealed("encoded", {.lines = {"Content-Encoding: gzip"}});
    expectHealed("no such range", {.status = 416, .reason = "Range Not Satisfiable"});
    expectHealed("too many", {.status = 429, .reason = "Too Many Requests"});
}

TEST_F(WebFaultsTest, BodiesOfAnotherLength) {
    expectHealed("shorter", {.excess = -7});
    expectHealed("shorter, of no stated length", {.excess = -7, .isLengthHidden = true});
    expectHealed("longer", {.excess = 9});
    expectHealed("longer, of no stated length", {.excess = 9, .isLengthHidden = true});
}

// --- local files

double s_stepped = 1000.0;

double steppedSeconds() {
    return s_stepped;
}

constexpr double s_step = 0.1;

class LocalFaultsTest : public testing::TestWithParam<IMPL::ReadEngine::Kind> {
protected:
    void SetUp() override {
        if (!IMPL::ReadEngine::use(GetParam())) GTEST_SKIP() << "this system forbids the kernel's ring";
        GeoTransformation::setNBXOrigin({});
        write(path("a.ztt"), StreamedFiles::terrain());
        StreamedFiles::writeTexture(path("a.zts"));
        calls_.emplace();
    }
    void TearDown() override {
        faults_.reset();
        while (AsyncFile::isLoading())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        calls_.reset();
        EXPECT_TRUE(IMPL::ReadEngine::use(IMPL::ReadEngine::RE_Automatic));
    }
    static std::string path(const std::string & name) {
        return std::string(std::getenv("TMPDIR")) + "/" + name;
    }
    /// Into the file that is there, where there is one.
    static void write(const std::string & name, const Bytes & bytes) {
        std::ofstream(name,
                      std::filesystem::exists(name) ? std::ios::binary | std::ios::in : std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    /// A frame of 0.1 s, in which reads that work well come to their end.
    void pause() {
        s_stepped += s_step;
        calls_->laterSeconds = calls_->laterSeconds + s_step;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    void expectHealed(const std::string & name, int mostReads, const std::function<void()> & begin,
                      const std::function<void()> & end) {
        int before = 0;
        if (!faults_) faults_.emplace(steppedSeconds, [this] { pause(); });
        faults_->expectHealed(
            name, NBX::StringUtils::Utf8String2WString(path("a.ztt")),
            NBX::StringUtils::Utf8String2WString(path("a.zts")), 4.0,
            [&] {
                before = calls_->reads;
                begin();
            },
            [&] {
                EXPECT_GE(before + mostReads, calls_->reads);
                end();
            });
    }
    void expectHealed(const std::string & name, int mostReads, int answer) {
        expectHealed(
            name, mostReads, [&] { calls_->answerAlways(answer); },
            [&] { calls_->answerAlways(std::numeric_limits<int>::max()); });
    }

    /// The children of both roots at 0, 1 and 3 s.
    static constexpr int s_tries = (4 + 4) * 3;
    static constexpr int s_unlimited = std::numeric_limits<int>::max() / 2;

    const TemporaryFolder folder_;
    std::optional<ScriptedFileCalls> calls_;
    std::optional<Faults> faults_;
};

TEST_P(LocalFaultsTest, ReadErrors) {
    expectHealed("a bad disk", s_tries, -EIO);
    expectHealed("a stale handle", s_tries, -ESTALE);
}

TEST_P(LocalFaultsTest, ReadsThatEndTooEarly) {
    expectHealed("nothing", s_tries, 0);
}

/// Interrupted reads, and those of a device that is busy, are repeated below the requests.
TEST_P(LocalFaultsTest, ReadsThatAreInterruptedOrMeetABusyDevice) {
    expectHealed("interrupted", s_unlimited, -EINTR);
    expectHealed("busy", s_unlimited, -EAGAIN);
}

TEST_P(LocalFaultsTest, FilesThatAreCutAndComeBack) {
    for (const char * name : {"a.ztt", "a.zts"}) {
        const Bytes right = NBX::File::contents(path(name));
        expectHealed(
            std::string("cut: ") + name, s_tries + StreamedFiles::tiles,
            [&] { std::filesystem::resize_file(path(name), 300); }, [&] { write(path(name), right); });
    }
}

/// Parts of a range are no fault: the rest is asked for.
TEST_P(LocalFaultsTest, ShortReadsDelayNothing) {
    const TileClock clock(steppedSeconds);
    StreamedView view([this] { pause(); });
    ASSERT_TRUE(view.open(NBX::StringUtils::Utf8String2WString(path("a.ztt")),
                          NBX::StringUtils::Utf8String2WString(path("a.zts"))));
    calls_->answerAlways(700);
    for (const double until = s_stepped + s_healed; !view.frame() && s_stepped < until;) {
    }
    EXPECT_EQ(0U, view.missing);
    EXPECT_TRUE(AsyncGridTerrain::readFailures().empty());
}

INSTANTIATE_TEST_SUITE_P(Engines, LocalFaultsTest,
                         testing::Values(IMPL::ReadEngine::RE_Ring, IMPL::ReadEngine::RE_Threads),
                         [](const auto & info) {
                             return info.param == IMPL::ReadEngine::RE_Ring ? "Ring" : "Threads";
                         });

} // namespace
