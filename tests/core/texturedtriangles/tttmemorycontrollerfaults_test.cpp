// A city whose paging file lies on a web server that does not answer as it should: the picture is whole at
// any time, one report tells of it, nobody is asked in a storm, and it becomes sharp by itself. Web servers
// and the clock of the controller run faster than for users.

#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include <algorithm>
#include <optional>
#include <utility>

#include <nbx/data/file.h>
#include <nbx/engine/canvas.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <support/webtest.h>
#include <zmt/core/misc/httpsettings.h>

#include "smalltree.h"

namespace ZMT::CORE {
namespace {

using NBX::Color;
using NBX::SO;
using Tree = TexturedTriangleTree;

constexpr double s_speed = 40.0;

/// As many seconds as go by for the controller.
double fastSeconds() {
    static const double begin = NBX::NBXTime::now();
    return begin + s_speed * (NBX::NBXTime::now() - begin);
}

/// A tree that is red in its root atlas, green and blue below.
class TTTMemoryControllerFaultsTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        IMPL::httpTimes().longestPause = 0.04;
        controller_->setClock(fastSeconds);
        canvas_ = new NBX::OffscreenCanvasGL(64, 64);
        ASSERT_TRUE(canvas_->isCreated()) << "no OpenGL context";
        ASSERT_TRUE(canvas_->makeContextCurrent());
        root_ = new NBX::SceneThing;
        root_->append(new NBX::Camera(new NBX::LookAt({2, 2, -150}, {2, 2, 0}),
                                      new NBX::Ortho(-2, 2, -2, 2, -1000, 10000)));
        canvas_->append(root_.get());
        makeCity(Color::green, Color::blue);
    }
    void TearDown() override {
        root_->clear();
        city_.reset();
        canvas_->releaseContext();
        controller_->setClock({});
        EXPECT_TRUE(reports_.empty()) << reports_;
        WebTest::TearDown();
    }

    /// In the place of the one that there was. `bytes` are those of its paging file.
    void makeCity(const Color & middle, const Color & finest,
                  Tree::TextureFormat format = Tree::TextureFormatRGBA8) {
        if (city_) root_->remove(city_->tree.get());
        city_.emplace(2);
        bytes = pagingBytes(*city_, middle, finest, format);
        root_->append(city_->tree.get());
        city_->tree->changePagingFileName(server_.url("/town/a.opaque.city"), 0);
    }
    static std::string pagingBytes(SmallTree & city, const Color & middle, const Color & finest,
                                   Tree::TextureFormat format = Tree::TextureFormatRGBA8) {
        city.writePagingFile({middle, finest}, Color::white, format);
        const auto content = NBX::File::contents(NBX::StringUtils::WString2Utf8String(city.pagingFile()));
        return {content.begin(), content.end()};
    }

    /// One letter for each leaf, the lowest row first.
    std::string picture() {
        WebApplication::processEvents();
        canvas_->redisplay();
        const SO<NBX::Image> image = canvas_->snapshot();
        std::string result;
        for (int i = 0; i < 16; ++i) {
            const Color color = image->getColor(8 + 16 * (i % 4), 8 + 16 * (i / 4));
            result += ".rgybmcw"[int(color[0] > 0.5F) + 2 * int(color[1] > 0.5F) + 4 * int(color[2] > 0.5F)];
        }
        return result;
    }
    std::string pictureAfter(double seconds) {
        std::string last;
        runUntil(
            [&] {
                last = picture();
                EXPECT_EQ(last.find('.'), std::string::npos) << "it has a hole: " << last;
                return false;
            },
            seconds);
        return last;
    }
    bool becomes(const std::string & expected, double seconds = 5.0) {
        return runUntil(
            [&] {
                const std::string now = picture();
                EXPECT_EQ(now.find('.'), std::string::npos) << "it has a hole: " << now;
                return now == expected;
            },
            seconds);
    }
    /// No picture is due; one may be later, for the next try.
    bool settles() {
        return runUntil([&] {
            picture();
            const bool isDue =
                canvas_->redisplayPending() && canvas_->redisplayTime() < NBX::NBXTime::now() + 0.1;
            return !isDue && !controller_->redisplayRequired();
        });
    }
    static std::string all(char letter) { return std::string(16, letter); }

    void expectHealed(const std::string & name, const HttpAnswer & answer, unsigned mostRequests = 30) {
        SCOPED_TRACE(name);
        server_.setFile("/town/a.opaque.city", bytes);
        makeCity(Color::green, Color::blue);
        picture(); // opens the file
        EXPECT_TRUE(reports_.empty()) << reports_;
        const unsigned before = server_.requests();
        server_.always(answer);
        const int patient = IMPL::httpTimes().silenceMilliseconds;
        if (answer.silentAfter) IMPL::httpTimes().silenceMilliseconds = 50;
        pictureAfter(0.15);
        EXPECT_GE(before + mostRequests, server_.requests());
        EXPECT_TRUE(runUntil([&] {
            picture();
            return !controller_->failures().empty();
        })) << "a busy machine takes its time";
        EXPECT_EQ(told(), 1U) << reports_;
        IMPL::httpTimes().silenceMilliseconds = patient;
        server_.always({});
        EXPECT_TRUE(becomes(all('b'))) << picture();
        EXPECT_TRUE(settles());
        EXPECT_TRUE(controller_->failures().empty());
        EXPECT_EQ(told(), 1U) << reports_;
        reports_.clear();
    }
    /// Reports of reads; others tell of what a server does.
    std::size_t told() const {
        const auto all = reports_.reports();
        return std::size_t(std::count_if(all.begin(), all.end(), [](const NBX::ErrorReport & report) {
            return report.level == 2 && report.message.find(L"textures cannot be read") == 0 &&
                   report.message.find(L"a.opaque.city") != std::wstring::npos;
        }));
    }

    const TemporaryFolder folder_;
    RecordedReports reports_;
    const SO<TTTMemoryController> controller_ = TTTMemoryController::getInstance();
    SO<NBX::OffscreenCanvasGL> canvas_;
    SO<NBX::SceneThing> root_;
    std::optional<SmallTree> city_;
    std::string bytes;
};

TEST_F(TTTMemoryControllerFaultsTest, ServersThatAnswerWithErrors) {
    expectHealed("unavailable", {.status = 503, .reason = "Service Unavailable"});
    expectHealed("elsewhere", {.status = 302, .reason = "Found", .lines = {"Location: http://127.0.0.2:1/"}});
}

TEST_F(TTTMemoryControllerFaultsTest, ConnectionsThatEndOrBringNothing) {
    expectHealed("without an answer", {.dropAfter = -1}, 60);
    expectHealed("amid the body", {.dropAfter = 50});
    expectHealed("silence", {.silentAfter = -1});
}

TEST_F(TTTMemoryControllerFaultsTest, AnswersToOtherQuestions) {
    expectHealed("the whole file", {.isWholeFile = true});
    expectHealed("another range", {.contentRange = "bytes 1-50/12345"});
    expectHealed("shorter, of no stated length", {.excess = -7, .isLengthHidden = true});
    expectHealed("longer", {.excess = 9});
}

TEST_F(TTTMemoryControllerFaultsTest, AFileThatIsMissingAtTheStartIsHealedByTryingAgain) {
    EXPECT_EQ(pictureAfter(0.1), all('r'));
    EXPECT_EQ(reports_.size(), 1U) << reports_;
    EXPECT_EQ(reports_.last().message.find(L"failed to open streaming file: http"), 0U) << reports_;
    EXPECT_EQ(controller_->failures().size(), 1U);
    EXPECT_TRUE(settles());
    const unsigned asked = server_.requests();
    pictureAfter(0.1);
    EXPECT_EQ(server_.requests(), asked) << "nobody asks by himself";
    controller_->tryAgain();
    EXPECT_EQ(reports_.size(), 2U) << "it is still missing\n" << reports_;
    EXPECT_EQ(pictureAfter(0.1), all('r'));
    server_.setFile("/town/a.opaque.city", bytes);
    controller_->tryAgain();
    EXPECT_TRUE(becomes(all('b'))) << picture();
    EXPECT_TRUE(controller_->failures().empty());
    EXPECT_EQ(reports_.size(), 2U) << reports_;
    reports_.clear();
}

/// What was read stays; what comes after is that of the new file once somebody says so.
TEST_F(TTTMemoryControllerFaultsTest, AFileThatIsReplacedWhileItIsOpen) {
    SmallTree other(2);
    const std::string changed = pagingBytes(other, Color::white, Color::white);
    ASSERT_EQ(changed.size(), bytes.size());
    const std::pair<const char *, std::string> cases[] = {{"of another size", changed + "more"},
                                                          {"shorter", changed.substr(0, 1000)},
                                                          {"of one size", changed}};
    for (const auto & [name, now] : cases) {
        SCOPED_TRACE(name);
        server_.setFile("/town/a.opaque.city", bytes, "\"1\"");
        makeCity(Color::green, Color::blue);
        picture();
        server_.setFile("/town/a.opaque.city", now, "\"2\"");
        EXPECT_EQ(pictureAfter(0.1), all('r'));
        EXPECT_EQ(told(), 1U) << reports_;
        EXPECT_FALSE(controller_->failures().empty());
        server_.setFile("/town/a.opaque.city", changed, "\"3\"");
        EXPECT_EQ(pictureAfter(0.1), all('r')) << "its places may be others";
        controller_->tryAgain();
        EXPECT_TRUE(becomes(all('w'))) << picture();
        EXPECT_TRUE(controller_->failures().empty());
        EXPECT_EQ(told(), 1U) << reports_;
        reports_.clear();
    }
}

/// Blocks beyond the end are told once, and their places in the picture have the atlas above them.
TEST_F(TTTMemoryControllerFaultsTest, AFileThatWasCutIsShownAsFarAsItGoes) {
    std::vector<std::size_t> borders;
    city_->forLevel(1, [&](const auto & node) { borders.push_back(node->content.blockPositions[0]); });
    city_->forLevel(2, [&](const auto & node) { borders.push_back(node->content.blockPositions[0]); });
    const std::size_t block = borders[1] - borders[0];
    for (std::size_t i = 0; i <= 20; i += 4) {
        const std::size_t length = i * block + (i % 8 == 0 ? 0 : block / 2);
        SCOPED_TRACE(length);
        server_.setFile("/town/a.opaque.city", bytes.substr(0, std::max<std::size_t>(1, length)));
        makeCity(Color::green, Color::blue);
        EXPECT_TRUE(settles());
        // The four below each node come together or not at all.
        const std::size_t finest = i < 4 ? 0 : (i - 4) / 4;
        const std::string now = picture();
        EXPECT_EQ(std::count(now.begin(), now.end(), 'b'), std::ptrdiff_t(4 * finest)) << now;
        EXPECT_EQ(std::count(now.begin(), now.end(), i < 4 ? 'r' : 'g'), std::ptrdiff_t(16 - 4 * finest))
            << now;
        EXPECT_EQ(reports_.size(), i < 20 ? 1U : 0U) << reports_;
        reports_.clear();
    }
}

TEST_F(TTTMemoryControllerFaultsTest, ABrokenJPEGShowsTheAtlasAboveIt) {
    makeCity(Color::green, Color::blue, Tree::TextureFormatJPEG);
    std::vector<std::size_t> leaves;
    city_->forLevel(2, [&](const auto & node) { leaves.push_back(node->content.blockPositions[0]); });
    // A code of the first picture has no meaning; heads and lengths are whole.
    const std::size_t scan = bytes.find("\xFF\xDA", leaves[0]);
    ASSERT_LT(scan, leaves[1]);
    const char sound = std::exchange(bytes[scan + 3], '\xFF');
    server_.setFile("/town/a.opaque.city", bytes);
    EXPECT_TRUE(becomes("ggbbggbbbbbbbbbb")) << picture();
    EXPECT_TRUE(settles());
    const unsigned asked = server_.requests();
    EXPECT_TRUE(runUntil([&] { return picture() == "ggbbggbbbbbbbbbb" && server_.requests() >= asked + 2; }));
    EXPECT_EQ(reports_.count(2, L"false", L"jpg decompression failed"), 1U) << reports_;
    EXPECT_EQ(reports_.size(), 2U) << "one more of the codec, and none when it is tried again\n" << reports_;
    bytes[scan + 3] = sound;
    server_.setFile("/town/a.opaque.city", bytes);
    EXPECT_TRUE(becomes(all('b'))) << picture();
    EXPECT_EQ(reports_.size(), 2U) << reports_;
    reports_.clear();
}

} // namespace
} // namespace ZMT::CORE
