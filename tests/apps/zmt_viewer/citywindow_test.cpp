// The window with cities, whose textures are read, from a disk or a web server, while they are looked at.

#include "viewerwindow.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QRegularExpression>
#include <QSlider>
#include <QStatusBar>
#include <QTreeWidget>
#include <QWheelEvent>

#include "failurelist.h"
#include "support/scriptedhttpserver.h"
#include "support/zmtrun.h"
#include "viewertest.h"

#include <nbx/object/stringutils.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

namespace {

namespace fs = std::filesystem;
using ZMT::CORE::TTTMemoryController;

const std::string s_prism = ZMT_DATA_DIR "/../tests/data/models/prism.obj";
/// Where the terrain of the tests is.
constexpr const char *s_place = "747000,4053000,", *s_system = "EPSG:32616";

/// 35 m away from the model of `p.city`.
View fromAside() {
    return parseView("747020,4052980,520,747001.5,4053001,502");
}

class CityWindowTest : public ViewerTest {
protected:
    static void SetUpTestSuite() {
        for (const char * name : {"http_proxy", "all_proxy", "ALL_PROXY"})
            ::unsetenv(name);
        ::setenv("NETRC", "/dev/null", 1);
        s_files = std::make_unique<RunFolder>();
        // Sharp from far away, so that the window wants more than the root has.
        build("p.city", "500", {});
        build("q.city", "502", {});
        build("low.city", "100", {});
        build("other.city", "500", {"--system", "EPSG:32633"});
    }
    static void TearDownTestSuite() { s_files.reset(); }

    static void build(const std::string & name, const std::string & height, std::vector<std::string> more) {
        if (more.empty()) more = {"--system", s_system};
        more.insert(more.begin(), {"build", "city", s_prism, "--up", "z", "--at", s_place + height,
                                   "--atlas-size", "64", "--quality", "8", "--out", s_files->out(name)});
        const RunResult run = runProcess(ZMT_EXECUTABLE, more, *s_files);
        ASSERT_EQ(0, run.status) << run.errors;
    }
    static std::string city(const std::string & name = "p.city") { return s_files->out(name); }
    static std::string copyOf(const RunFolder & folder) {
        for (const char * name : {"p.city", "p.1.opaque.city"})
            fs::copy_file(s_files->out(name), folder.out(name));
        return folder.out("p.city");
    }
    /// A window with cities from the command line.
    void open(const std::vector<std::string> & cities, const View & start = {}, const CityLook & look = {}) {
        LandscapeOptions options;
        options.cities = {cities, look};
        options.method = TerrainMethod::Chunked;
        window.reset();
        window = std::make_unique<ViewerWindow>(options, start);
        window->resize(700, 480);
        window->show();
        view = window->view();
        ASSERT_TRUE(QTest::qWaitFor([&] { return view->canvas() != nullptr; }));
        window->open({});
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
        activate();
    }
    QSlider * slider(const char * name) const {
        return window->panel()->findChild<QWidget *>(name)->findChild<QSlider *>();
    }
    /// Of a city that is selected for it.
    QSlider * slider(const char * name, const QString & city) const {
        return item(city) ? slider(name) : nullptr;
    }
    QString overlay() const { return view->findChild<QLabel *>("overlay")->text(); }
    QPushButton * notice() const { return window->statusBar()->findChild<QPushButton *>("failureNotice"); }
    void drop(const std::string & file) const {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(QString::fromStdString(file))});
        QDragEnterEvent enter({20, 20}, Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(window.get(), &enter);
        EXPECT_TRUE(enter.isAccepted());
        QDropEvent event(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(window.get(), &event);
    }
    QString place() const {
        for (const QLabel * label : window->statusBar()->findChildren<QLabel *>())
            if (label->text().contains("height")) return label->text();
        return {};
    }
    void pointAt(const QPoint & where) const {
        QTest::mouseMove(view, where + QPoint(3, 3));
        QTest::mouseMove(view, where);
    }
    /// Frames that come by themselves; the window system may ask for some when windows come.
    unsigned framesAtRest() const {
        QTest::qWait(400);
        const unsigned before = view->frames().count;
        QTest::qWait(400);
        return view->frames().count - before;
    }
    /// Of all pixels, those that are not sky.
    double shown() const {
        const auto image = picture();
        unsigned count = 0;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x)
                count += std::abs(image->pixelComponentsU8(x, y)[0] - 0.72 * 255) > 2.0;
        return double(count) / (double(image->width()) * image->height());
    }

    static inline std::unique_ptr<RunFolder> s_files;
};

TEST_F(CityWindowTest, StandAloneAndComeToRest) {
    open({city()});
    EXPECT_EQ("p.city - zmt", window->windowTitle());
    ASSERT_EQ(1, switches().size());
    EXPECT_EQ("p.city", switches().front()->text(0));
    EXPECT_GT(shown(), 0.05);
    EXPECT_GT(TTTMemoryController::getInstance()->textureMemory(), 0U) << "more than the root's";
    EXPECT_EQ(0U, framesAtRest()) << "nothing changes any more";
    EXPECT_FALSE(view->groundAt(middle())) << "what lies below is not drawn";
}

TEST_F(CityWindowTest, FiguresTellWhatTexturesTake) {
    open({city()});
    EXPECT_TRUE(overlay().contains(
        QRegularExpression("city textures \\d+\\.\\d of 1024 MiB   [1-9]\\d* nodes?   0 requests")))
        << overlay().toStdString();
    EXPECT_FALSE(overlay().contains("patch")) << "there is no terrain";
    EXPECT_TRUE(overlay().contains("complete"));
    load({s_jacksboro});
    EXPECT_TRUE(overlay().contains("city textures")) << overlay().toStdString();
    EXPECT_TRUE(overlay().contains("patch"));
    load({s_everest});
    EXPECT_FALSE(overlay().contains("city textures")) << "it went with the other terrain";
}

/// The toolkit composes a window by the alpha of its parts.
TEST_F(CityWindowTest, GlassIsSeenThroughInTheWindowAsInThePicture) {
    const RunFolder folder;
    folder.write("glass.mtl", "newmtl wall\nKd 0.8 0.1 0.1\nnewmtl glass\nKd 1 1 1\nd 0.5\n");
    const std::string model = folder.write(
        "glass.obj", "mtllib glass.mtl\nv -9 1 -9\nv 9 1 -9\nv 9 1 9\nv -9 1 9\nv -9 0 -9\nv 9 0 -9\n"
                     "v 9 0 9\nv -9 0 9\nusemtl wall\nf 1 2 3 4\nusemtl glass\nf 5 6 7 8\n");
    const RunResult run =
        runProcess(ZMT_EXECUTABLE,
                   {"build", "city", model, "--up", "z", "--at", std::string(s_place) + "500", "--system",
                    s_system, "--shade", "none", "--out", folder.out("g.city")},
                   folder);
    ASSERT_EQ(0, run.status) << run.errors;
    open({folder.out("g.city")}, parseView("747000,4052970,500,747000,4053000,500"));
    const auto expected = picture();
    const QImage found = view->grab().toImage();
    const auto color = expected->pixelComponentsU8(expected->width() / 2, expected->height() / 2);
    const QColor shown = found.pixelColor(found.width() / 2, found.height() / 2);
    EXPECT_NEAR(color[0], (0.8 + 1.0) / 2 * 255, 3);
    EXPECT_NEAR(color[1], (0.1 + 1.0) / 2 * 255, 3);
    EXPECT_EQ(shown.alpha(), 255);
    EXPECT_NEAR(shown.red(), color[0], 2);
    EXPECT_NEAR(shown.green(), color[1], 2);
    EXPECT_NEAR(shown.blue(), color[2], 2);
}

TEST_F(CityWindowTest, ASwitchHidesACityAtOnce) {
    open({city()});
    const auto before = picture();
    QTest::keyClick(view, Qt::Key_1);
    EXPECT_FALSE(switches().front()->checkState(0));
    ASSERT_TRUE(settle());
    EXPECT_EQ(0.0, shown());
    EXPECT_FALSE(view->seenAt(middle())) << "what is not drawn is not seen";
    QTest::keyClick(view, Qt::Key_1);
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(before, picture()), 1e-3);
}

TEST_F(CityWindowTest, QualityAndFarLimitActAtOnce) {
    open({city(), city("q.city")}, fromAside());
    ASSERT_EQ(2, switches().size());
    const auto & cities = view->landscape()->cities();
    slider("cityQuality", "q.city")->setValue(slider("cityQuality", "q.city")->minimum());
    ASSERT_TRUE(settle());
    EXPECT_DOUBLE_EQ(0.1, cities[1].city().trees().front()->getQualityFactor());
    EXPECT_DOUBLE_EQ(1.0, cities[0].city().trees().front()->getQualityFactor());
    EXPECT_FALSE(cities[0].city().trees().front()->maxDistanceEnabled());
    const auto whole = picture();
    const double wholeShare = shown();
    slider("cityDistance", "p.city")->setValue(slider("cityDistance", "p.city")->minimum());
    slider("cityDistance", "q.city")->setValue(slider("cityDistance", "q.city")->minimum());
    ASSERT_TRUE(settle());
    EXPECT_DOUBLE_EQ(10.0, cities[0].city().trees().front()->maxDistance());
    EXPECT_LT(shown(), 0.7 * wholeShare) << "all that has a texture is gone";
    slider("cityDistance", "p.city")->setValue(slider("cityDistance", "p.city")->maximum());
    slider("cityDistance", "q.city")->setValue(slider("cityDistance", "q.city")->maximum());
    ASSERT_TRUE(settle());
    EXPECT_FALSE(cities[0].city().trees().front()->maxDistanceEnabled());
    EXPECT_LT(difference(whole, picture()), 1e-3);
}

TEST_F(CityWindowTest, SlidersShowWhatTheCommandLineSaid) {
    LandscapeOptions options;
    options.cities = {{city()}, {.quality = 2.0, .distance = 500.0}};
    window.reset();
    window = std::make_unique<ViewerWindow>(options, View());
    window->show();
    view = window->view();
    load({});
    const auto shows = [&](const char * name, const QString & text) {
        for (const QLabel * label : window->panel()->findChild<QWidget *>(name)->findChildren<QLabel *>())
            if (label->text() == text) return true;
        return false;
    };
    EXPECT_TRUE(shows("cityQuality", "2 ×"));
    EXPECT_TRUE(shows("cityDistance", "500 m"));
    slider("cityDistance", "p.city")->setValue(slider("cityDistance", "p.city")->maximum());
    EXPECT_TRUE(shows("cityDistance", "none"));
}

TEST_F(CityWindowTest, ALookLastsThroughAReload) {
    open({city(), city("q.city")});
    slider("cityQuality", "q.city")->setValue(slider("cityQuality", "q.city")->maximum());
    slider("cityDistance", "p.city")->setValue(slider("cityDistance", "p.city")->minimum());
    QTest::keyClick(view, Qt::Key_2);
    const auto before = view->landscape();
    window->reload();
    ASSERT_TRUE(settle());
    ASSERT_NE(before, view->landscape());
    const auto & cities = view->landscape()->cities();
    EXPECT_DOUBLE_EQ(10.0, cities[1].look().quality);
    EXPECT_DOUBLE_EQ(10.0, cities[0].look().distance.value());
    EXPECT_FALSE(cities[1].look().distance);
    EXPECT_TRUE(cities[0].isShown());
    EXPECT_FALSE(cities[1].isShown());
    EXPECT_TRUE(switches()[0]->checkState(0));
    EXPECT_FALSE(switches()[1]->checkState(0));
}

TEST_F(CityWindowTest, TheirMemoryIsASettingOfItsOwn) {
    const MemoryBudgets before = presentMemoryBudgets();
    applyMemoryBudgets({.main = 512, .graphics = 256, .city = 300});
    open({city()});
    slider("memory")->setValue(slider("memory")->minimum());
    EXPECT_EQ(300U, presentMemoryBudgets().city) << "others leave it alone";
    slider("cityMemory")->setValue(slider("cityMemory")->minimum());
    EXPECT_EQ(16U, presentMemoryBudgets().city);
    EXPECT_EQ(16U, presentMemoryBudgets().main);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(overlay().contains("of 16 MiB")) << overlay().toStdString();
    applyMemoryBudgets(before);
}

TEST_F(CityWindowTest, ADroppedCityStandsOnTheTerrain) {
    load({s_jacksboro});
    const auto landscape = view->landscape();
    const auto eye = view->flight().eye();
    QTest::keyClick(view, Qt::Key_2);
    drop(city());
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_EQ(landscape, view->landscape()) << "the terrain is not built again";
    EXPECT_EQ(0.0, (eye - view->flight().eye()).length()) << "the view stays";
    ASSERT_EQ(1U, view->landscape()->cities().size());
    ASSERT_EQ(3, switches().size());
    EXPECT_EQ("p.city", switches()[2]->text(0));
    EXPECT_FALSE(switches()[1]->checkState(0));
    EXPECT_TRUE(switches()[2]->checkState(0));
    EXPECT_EQ("jacksboro_heights.tif - zmt", window->windowTitle());
}

TEST_F(CityWindowTest, ACityOfAnotherSystemIsRefused) {
    load({s_jacksboro});
    drop(city("other.city"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }));
    EXPECT_TRUE(window->lastError().contains("EPSG:32633")) << window->lastError().toStdString();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(view->landscape()->cities().empty());
}

TEST_F(CityWindowTest, CitiesAloneGetMoreOfThemAndATerrain) {
    load({city()});
    EXPECT_FALSE(view->landscape()->hasTerrain());
    drop(city("q.city"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(2U, view->landscape()->cities().size());
    drop(s_jacksboro);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(view->landscape()->hasTerrain());
    EXPECT_EQ(2U, view->landscape()->cities().size());
    EXPECT_EQ(4, switches().size());
}

TEST_F(CityWindowTest, TheModelUnderTheMouseIsNamed) {
    load({s_jacksboro, city()});
    EXPECT_EQ(1U, view->landscape()->cities().size());
    open({city()}, fromAside());
    pointAt(middle());
    ASSERT_TRUE(QTest::qWaitFor([&] { return place().contains("prism of prism.obj"); }))
        << place().toStdString();
    EXPECT_TRUE(
        place().contains(QRegularExpression("x 74700\\d\\.\\d   y 405300\\d\\.\\d   height 50\\d\\.\\d")))
        << place().toStdString();
    EXPECT_TRUE(place().contains("EPSG:32616"));
    pointAt({5, 5});
    EXPECT_TRUE(QTest::qWaitFor([&] { return place().isEmpty(); })) << "neither sky nor hidden ground";
}

TEST_F(CityWindowTest, WhatIsNearerIsSeenOfGroundAndModel) {
    const View from = fromAside();
    window.reset();
    window = std::make_unique<ViewerWindow>(LandscapeOptions(), from);
    window->resize(700, 480);
    window->show();
    view = window->view();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->canvas() != nullptr; }));
    load({s_jacksboro, city("low.city")});
    // The model stands below the ground.
    const auto ground = view->seenAt(middle());
    ASSERT_TRUE(ground);
    EXPECT_TRUE(ground->isGround);
    EXPECT_FALSE(ground->model);
    EXPECT_NEAR(440.0, ground->place.y, 30.0);
    drop(city());
    ASSERT_TRUE(settle());
    const auto seen = view->seenAt(middle());
    ASSERT_TRUE(seen);
    EXPECT_FALSE(seen->isGround);
    ASSERT_TRUE(seen->model);
    EXPECT_EQ("prism", seen->model->name);
    EXPECT_NEAR(502.0, seen->place.y, 4.0);
}

TEST_F(CityWindowTest, ATextureFileThatIsGoneIsToldAndTriedAgain) {
    const RunFolder folder;
    const std::string path = copyOf(folder), textures = folder.out("p.1.opaque.city");
    fs::rename(textures, folder.out("away"));
    load({path});
    EXPECT_GT(shown(), 0.05) << "blurred, and whole";
    ASSERT_TRUE(QTest::qWaitFor([&] { return notice()->isVisible(); }));
    EXPECT_TRUE(notice()->toolTip().contains("tried again on request")) << notice()->toolTip().toStdString();
    notice()->click();
    const auto * record = window->findChild<FailureList *>();
    ASSERT_TRUE(record);
    const auto * list = record->findChild<QTreeWidget *>();
    ASSERT_EQ(1, list->topLevelItemCount());
    EXPECT_TRUE(list->topLevelItem(0)->text(0).endsWith("p.1.opaque.city"));
    EXPECT_EQ("on request", list->topLevelItem(0)->text(2));
    auto * button = record->findChild<QPushButton *>("tryAgain");
    ASSERT_TRUE(button);
    EXPECT_TRUE(button->isEnabled());
    const auto blurred = picture();
    fs::rename(folder.out("away"), textures);
    button->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !notice()->isVisible(); }));
    ASSERT_TRUE(settle());
    EXPECT_EQ(0, list->topLevelItemCount());
    EXPECT_FALSE(button->isEnabled());
    EXPECT_GT(difference(blurred, picture()), 0.01) << "sharper";
}

TEST_F(CityWindowTest, ACityThatIsBuiltAnewIsReloadedOnRequest) {
    const RunFolder folder;
    load({copyOf(folder)});
    auto * change = window->statusBar()->findChild<QPushButton *>("changeNotice");
    QTest::qWait(600);
    EXPECT_FALSE(change->isVisible());
    fs::copy_file(city("q.city"), folder.out("new"));
    fs::copy_file(city("q.1.opaque.city"), folder.out("q.1.opaque.city"));
    fs::rename(folder.out("new"), folder.out("p.city"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return change->isVisible(); }));
    EXPECT_EQ("p.city has changed: reload", change->text());
    change->click();
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_NEAR(502.0, view->landscape()->cities().front().city().models().front().place.y, 1e-3);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !change->isVisible(); }));
}

/// What is dragged is the model, also beside the place where the ground behind it would be.
TEST_F(CityWindowTest, TheModelUnderTheMouseIsDragged) {
    open({city()}, fromAside());
    const auto before = view->seenAt(middle());
    ASSERT_TRUE(before && !before->isGround);
    QTest::mousePress(view, Qt::RightButton, {}, middle());
    QTest::mouseMove(view, middle() + QPoint(40, 0));
    QTest::mouseRelease(view, Qt::RightButton, {}, middle() + QPoint(40, 0));
    const auto after = view->seenAt(middle() + QPoint(40, 0));
    ASSERT_TRUE(after);
    EXPECT_NEAR(0.0, (after->place - before->place).length(), 0.02);
}

TEST_F(CityWindowTest, DoesNotSaveAPictureOverTexturesThatItShows) {
    const RunFolder folder;
    load({copyOf(folder)});
    for (const char * name : {"p.city", "p.1.opaque.city"}) {
        const std::string before = readWhole(folder.out(name)), link = folder.out(name + std::string(".png"));
        fs::create_symlink(folder.out(name), link);
        EXPECT_FALSE(window->savePicture(link));
        EXPECT_EQ(before, readWhole(folder.out(name))) << name;
    }
}

/// Files behind a web server.
class CityWindowOnAServer : public CityWindowTest {
protected:
    void SetUp() override {
        CityWindowTest::SetUp();
        for (const char * name : {"p.city", "p.1.opaque.city"})
            server.setFile(std::string("/") + name, readWhole(s_files->out(name)));
    }
    void TearDown() override {
        server.setHeld(false);
        window.reset();
    }
    std::string url() const { return NBX::StringUtils::WString2Utf8String(server.url("/p.city")); }

    ScriptedHttpServer server;
};

TEST_F(CityWindowOnAServer, AreShownAndComeToRest) {
    open({url()});
    EXPECT_EQ("p.city - zmt", window->windowTitle());
    EXPECT_GT(shown(), 0.05);
    EXPECT_TRUE(overlay().contains(QRegularExpression("[1-9]\\d* nodes?"))) << overlay().toStdString();
    EXPECT_EQ(0U, framesAtRest());
}

/// As a file, and not by its option; what else lies at URLs stays what it was.
TEST_F(CityWindowOnAServer, IsToldByWhatLiesThere) {
    load({url()});
    EXPECT_TRUE(window->lastError().isEmpty()) << window->lastError().toStdString();
    ASSERT_TRUE(view->landscape());
    EXPECT_FALSE(view->landscape()->hasTerrain());
    ASSERT_EQ(1U, view->landscape()->cities().size());
    EXPECT_GT(shown(), 0.05);
    load({s_jacksboro});
    load({url()});
    EXPECT_TRUE(view->landscape()->hasTerrain());
    EXPECT_EQ(2U, view->landscape()->cities().size());
    EXPECT_TRUE(view->landscape()->layers().size() == 2U) << "it is no image";
}

TEST_F(CityWindowOnAServer, StandOnATerrainFromTheDisk) {
    open({url()});
    load({s_jacksboro});
    EXPECT_TRUE(view->landscape()->hasTerrain());
    EXPECT_EQ(1U, view->landscape()->cities().size());
}

/// While textures are under way, and no longer.
TEST_F(CityWindowOnAServer, FramesComeWhileTexturesAreUnderWay) {
    open({url()}, fromAside(), {0.1, {}});
    EXPECT_EQ(0U, framesAtRest());
    server.setHeld(true);
    slider("cityQuality", "p.city")->setValue(slider("cityQuality", "p.city")->maximum());
    ASSERT_TRUE(QTest::qWaitFor([&] { return TTTMemoryController::getInstance()->pendingReads() > 0; }));
    const unsigned before = view->frames().count;
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->frames().count > before + 3; }))
        << "a frame is posted while something is in flight";
    server.setHeld(false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(0U, TTTMemoryController::getInstance()->pendingReads());
    EXPECT_EQ(0U, framesAtRest());
}

TEST_F(CityWindowOnAServer, OpeningDoesNotHoldUpTheWindow) {
    LandscapeOptions options;
    options.cities.files = {url()};
    window.reset();
    window = std::make_unique<ViewerWindow>(options, View());
    window->show();
    view = window->view();
    server.setHeld(true);
    window->open({});
    unsigned ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
    timer.start(10);
    QTest::qWait(300);
    EXPECT_TRUE(window->loader()->isRunning());
    EXPECT_GT(ticks, 5U);
    window->loader()->cancel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }, 5000));
    EXPECT_TRUE(window->lastError().isEmpty()) << window->lastError().toStdString();
}

TEST_F(CityWindowOnAServer, WhatFailsIsTriedAgain) {
    HttpAnswer broken;
    broken.status = 503;
    broken.reason = "Service Unavailable";
    open({url()}, fromAside(), {0.1, {}});
    server.always(broken);
    slider("cityQuality", "p.city")->setValue(slider("cityQuality", "p.city")->maximum());
    ASSERT_TRUE(QTest::qWaitFor([&] { return notice()->isVisible() && notice()->toolTip().contains("503"); },
                                20'000));
    notice()->click();
    const auto * record = window->findChild<FailureList *>();
    EXPECT_EQ(QString::fromStdString(url()).replace("p.city", "p.1.opaque.city"),
              record->findChild<QTreeWidget *>()->topLevelItem(0)->text(0));
    server.always({});
    record->findChild<QPushButton *>("tryAgain")->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !notice()->isVisible(); }, 20'000));
    EXPECT_TRUE(settle());
}

} // namespace
