#include "windowtask.h"

#include <cmath>
#include <filesystem>

#include <QDockWidget>
#include <QImage>
#include <QLabel>

#include "bookmarkmenu.h"
#include "bookmarkpanel.h"
#include "flightplayer.h"
#include "flightrecorder.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

namespace fs = std::filesystem;

RunResult viewTask(const RunFolder & folder, const std::vector<std::string> & arguments) {
    std::vector<std::string> all = {s_everest, "--size", "480x360", "--max-vertices", "200"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runProcess(ZMT_VIEWER_EXECUTABLE, all, folder);
}

void expectRefusal(const RunResult & run, int status, const std::string & word) {
    EXPECT_EQ(status, run.status) << run.errors;
    EXPECT_NE(std::string::npos, run.errors.find(word)) << run.errors;
}

class WindowTaskTest : public ViewerTest {};

TEST_F(WindowTaskTest, BookmarksAreKeptInTheirOrderAndTheViewComesBack) {
    load({s_everest});
    const auto start = view->viewCoordinates();
    const Bookmark before{FlightPlayer::positionOf(*view), {}};
    window->bookmarks()->panel()->setBookmarks({before});
    WindowTask task;
    task.bookmarks = {parseView("north"), parseView("closeup")};
    const WindowTaskRunner runner(*window, task);
    const BookmarkPanel & panel = *window->bookmarks()->panel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return panel.bookmarks().size() == 3; }, 30'000));
    ASSERT_TRUE(settle());
    for (std::size_t i = 0; i < start.size(); ++i)
        EXPECT_NEAR(start[i], view->viewCoordinates()[i], 1.0) << i;
    const auto kept = [&](std::size_t number) { return panel.bookmarks()[number].position; };
    EXPECT_NEAR(kept(1)->getFrom().x, kept(1)->getTo().x, 1.0) << "straight down";
    EXPECT_GT(std::abs(kept(2)->getFrom().z - kept(2)->getTo().z), 100.0);
    EXPECT_GT(kept(1)->getFrom().y, kept(2)->getFrom().y + 100.0);
    EXPECT_FALSE(panel.bookmarks()[1].picture.empty());
}

TEST_F(WindowTaskTest, ALineIsMeasuredInItsPanel) {
    load({s_everest});
    const auto middle = *view->groundAt(QPointF(view->width() / 2, view->height() / 2));
    WindowTask task;
    task.line = {{middle.x, 0.0, middle.z}, {middle.x + 300.0, 0.0, middle.z + 400.0}};
    const WindowTaskRunner runner(*window, task);
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->measuring()->line().size() == 2; }, 30'000));
    EXPECT_TRUE(window->findChild<QDockWidget *>("measurePanel")->isVisible());
    EXPECT_NEAR(middle.y, window->measuring()->line()[0].y, 1.0);
    EXPECT_NE(std::string::npos,
              window->findChild<QLabel *>("measured")->text().toStdString().find("500.0 m on the map"));
}

TEST(WindowTask, AFlightIsSavedWithAllOfItsFramesAndEndsTheWindow) {
    const RunFolder folder;
    const std::vector<std::string> way = {"--bookmark", "overview", "--bookmark", "closeup"};
    const auto fly = [&](const std::string & path, const std::string & frames) {
        std::vector<std::string> arguments = way;
        arguments.insert(arguments.end(), {"--flight", path, "--frames", frames});
        const RunResult run = viewTask(folder, arguments);
        EXPECT_EQ(0, run.status) << run.errors;
    };
    fly(folder.out("flight"), "3");
    const auto frame = [&](int number) {
        return QImage(
            QString::fromStdString(folder.out("flight/frame_0000" + std::to_string(number) + ".png")));
    };
    EXPECT_FALSE(frame(1).isNull() || frame(2).isNull() || frame(3).isNull());
    EXPECT_TRUE(frame(4).isNull());
    EXPECT_EQ(480, frame(1).width()) << "no panel is beside it";
    EXPECT_NE(frame(1), frame(3));

    fly(folder.out("strip.png"), "3");
    const QImage strip(QString::fromStdString(folder.out("strip.png")));
    EXPECT_EQ(2 * 486 + 6, strip.width());
    const int height = frame(1).height();
    EXPECT_EQ(2 * (height + 6) + 6, strip.height());
    const auto cell = [&](int column, int row) {
        return strip.copy(6 + column * 486, 6 + row * (height + 6), 480, height);
    };
    EXPECT_EQ(frame(1).convertToFormat(strip.format()), cell(0, 0));
    EXPECT_EQ(frame(2).convertToFormat(strip.format()), cell(1, 0));
    EXPECT_EQ(frame(3).convertToFormat(strip.format()), cell(0, 1));
    EXPECT_EQ((std::vector<std::string>{"flight", "strip.png"}), folder.results());
}

TEST(WindowTask, RefusesWhatDoesNotGoTogether) {
    const RunFolder folder;
    const std::string out = folder.out("f.png");
    expectRefusal(viewTask(folder, {"--bookmark", "nowhere"}), 2, "--bookmark");
    for (const char * line : {"1,2", "1,2,3", "1,2,x,4", "1,2,3,inf", ""})
        expectRefusal(viewTask(folder, {"--measure", line}), 2, "--measure");
    expectRefusal(viewTask(folder, {"--frames", "3"}), 2, "--flight");
    expectRefusal(viewTask(folder, {"--frames", "0", "--flight", out}), 2, "--frames");
    expectRefusal(viewTask(folder, {"--frames", "65", "--flight", out}), 2, "64");
    expectRefusal(viewTask(folder, {"--flight", out, "--screenshot", folder.out("w.png")}), 2, "choose one");
    expectRefusal(viewTask(folder, {"--flight", s_everest}), 2, "FILE");
    expectRefusal(runProcess(ZMT_VIEWER_EXECUTABLE, {"--flight", out}, folder), 2, "--flight needs");
    expectRefusal(viewTask(folder, {"--flight", out}), 1, "no flight");
    fs::create_directories(folder.out("full/more"));
    expectRefusal(viewTask(folder, {"--flight", folder.out("full")}), 1, "is there already");
    EXPECT_EQ(std::vector<std::string>{"full"}, folder.results());
}

TEST(WindowTask, TheRateShowsAsManyFramesAsAreAskedFor) {
    const auto at = [](double x, double duration) {
        Flight::Position position(new ZMT::UTIL::CameraPosition({x, 0, 0}, {x, 0, 9}, {0, 1, 0}));
        position->setDuration(duration);
        return position;
    };
    const Flight flight({at(0, 5.0), at(1, 0.7), at(2, 1.0)});
    const auto frames = [&](double rate) { return std::floor(flight.duration() * rate + 1e-6) + 1.0; };
    for (const unsigned number : {1U, 2U, 3U, 7U, 1000U})
        EXPECT_EQ(number, frames(FlightRecorder::rate(flight, "f", number)));
    EXPECT_EQ(25.0, FlightRecorder::rate(flight, "f.mp4"));
    EXPECT_EQ(9.0, frames(FlightRecorder::rate(flight, "f.PNG")));
    EXPECT_EQ(25.0, FlightRecorder::rate(Flight({at(0, 5.0)}), "f", 4)) << "no time passes";
}

} // namespace
