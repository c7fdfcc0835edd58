#include "flightrecorder.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <QImage>

#include "bookmarkmenu.h"
#include "bookmarkpanel.h"
#include "flightplayer.h"
#include "landscape/errors.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

namespace fs = std::filesystem;

class FlightRecorderTest : public ViewerTest {
protected:
    void SetUp() override {
        ViewerTest::SetUp();
        load({s_everest});
        const auto first = FlightPlayer::positionOf(*view);
        QTest::keyPress(view, Qt::Key_W);
        QTest::qWait(150);
        QTest::keyRelease(view, Qt::Key_W);
        ASSERT_TRUE(settle());
        const auto second = FlightPlayer::positionOf(*view);
        second->setDuration(0.2);
        flight_ = Flight({first, second});
        QObject::connect(&recorder(), &FlightRecorder::ended, window.get(), [this](const QString & problem) {
            hasEnded_ = true;
            problem_ = problem.toStdString();
        });
    }
    ~FlightRecorderTest() override { ::setenv("PATH", path_.c_str(), 1); }
    FlightRecorder & recorder() const { return *window->bookmarks()->recorder(); }
    bool record(const std::string & path) {
        hasEnded_ = false;
        recorder().start(flight_, path, 25.0);
        return QTest::qWaitFor([&] { return hasEnded_; }, 60'000);
    }
    std::string failure(const std::string & path) {
        try {
            recorder().start(flight_, path, 25.0);
        } catch (const DataError & error) {
            return error.what();
        }
        return "";
    }
    /// A program of this name that does so, and nothing else beside the usual tools.
    void install(const std::string & lines, const std::string & shell = "/bin/sh") const {
        const std::string program = folder_.write("ffmpeg", "#!" + shell + "\n" + lines);
        fs::permissions(program, fs::perms::owner_all);
        ::setenv("PATH", (folder_.in("") + ":" + path_).c_str(), 1);
    }
    static QImage read(const std::string & path) {
        return QImage(QString::fromStdString(path)).convertToFormat(QImage::Format_RGB32);
    }
    QImage shown(double time, unsigned samples) const {
        view->setSamples(samples);
        FlightPlayer::show(*view, flight_.at(time), false);
        if (!settle()) return {};
        view->savePicture(folder_.out("shown.png"));
        view->setSamples(1);
        const QImage picture = read(folder_.out("shown.png"));
        fs::remove(folder_.out("shown.png"));
        return picture;
    }
    /// On average, of 255.
    static double difference(const QImage & a, const QImage & b) {
        if (a.isNull() || a.size() != b.size()) return 255.0;
        double sum = 0.0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x)
                sum += std::abs(qGreen(a.pixel(x, y)) - qGreen(b.pixel(x, y)));
        return sum / (double(a.width()) * a.height());
    }

    RunFolder folder_;
    Flight flight_;
    bool hasEnded_ = false;
    std::string problem_;
    const std::string path_ = std::getenv("PATH");
};

TEST_F(FlightRecorderTest, EachFrameIsThePictureAtItsTime) {
    ASSERT_TRUE(record(folder_.out("flight")));
    EXPECT_EQ(problem_, "");
    EXPECT_EQ(folder_.results(), std::vector<std::string>{"flight"});
    const auto frame = [&](int number) {
        return read(folder_.out("flight/frame_0000" + std::to_string(number) + ".png"));
    };
    for (int number = 1; number <= 6; ++number)
        EXPECT_EQ(frame(number), shown((number - 1) / 25.0, 4)) << number;
    EXPECT_NE(frame(1), frame(2));
    EXPECT_TRUE(frame(7).isNull());
}

TEST_F(FlightRecorderTest, FramesHaveFourSamplesOfAPixel) {
    ASSERT_TRUE(record(folder_.out("flight")));
    const QImage first = read(folder_.out("flight/frame_00001.png"));
    const QImage plain = shown(0.0, 1);
    EXPECT_NE(first, plain);
    EXPECT_LT(difference(first, plain), 4.0);
    EXPECT_LT(difference(first, shown(0.0, 16)), difference(plain, shown(0.0, 16)));
    EXPECT_EQ(shown(0.0, 1), plain) << "what is shown has one again";
}

TEST_F(FlightRecorderTest, ACancelledOneLeavesNothing) {
    recorder().start(flight_, folder_.out("flight"), 25.0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return folder_.results().size() == 1; }));
    QTest::qWait(100);
    recorder().cancel();
    EXPECT_TRUE(hasEnded_);
    EXPECT_EQ(problem_, FlightRecorder::cancelled().toStdString());
    EXPECT_TRUE(folder_.results().empty());
    EXPECT_FALSE(recorder().isRunning());
}

TEST_F(FlightRecorderTest, NothingIsOverwritten) {
    fs::create_directory(folder_.out("flight"));
    EXPECT_EQ(failure(folder_.out("flight")), "") << "an empty folder will do";
    recorder().cancel();
    folder_.write("../out/flight/other.txt", "x");
    EXPECT_NE(failure(folder_.out("flight")).find("is there already"), std::string::npos);
    EXPECT_NE(failure(folder_.out("missing/flight")), "");
    EXPECT_EQ(folder_.results(), std::vector<std::string>{"flight"});
}

TEST_F(FlightRecorderTest, AnotherSizeOfTheWindowEndsIt) {
    recorder().start(flight_, folder_.out("flight"), 25.0);
    window->resize(600, 400);
    ASSERT_TRUE(QTest::qWaitFor([&] { return hasEnded_; }));
    EXPECT_NE(problem_.find("another size"), std::string::npos);
    EXPECT_TRUE(folder_.results().empty());
}

TEST_F(FlightRecorderTest, FfmpegMakesFilms) {
    install("echo \"$*\" > " + folder_.in("words") +
            "\nfor film; do :; done\nls \"$(dirname \"$film\")\" > \"$film\"\n");
    ASSERT_TRUE(record(folder_.out("flight.mp4")));
    EXPECT_EQ(problem_, "");
    EXPECT_EQ(folder_.results(), std::vector<std::string>{"flight.mp4"});
    EXPECT_EQ(
        readWhole(folder_.out("flight.mp4")),
        "film.mp4\nframe_00001.png\nframe_00002.png\nframe_00003.png\nframe_00004.png\nframe_00005.png\n"
        "frame_00006.png\n");
    EXPECT_NE(readWhole(folder_.in("words")).find("-framerate 25 -i "), std::string::npos);
}

TEST_F(FlightRecorderTest, WhatFfmpegSaysIsTold) {
    install("echo first; echo no encoder >&2; exit 3\n");
    ASSERT_TRUE(record(folder_.out("flight.webm")));
    EXPECT_EQ(problem_, "ffmpeg has made no film: no encoder");
    EXPECT_TRUE(folder_.results().empty());
    ::setenv("PATH", folder_.out("").c_str(), 1);
    EXPECT_NE(failure(folder_.out("flight.webm")).find("not installed"), std::string::npos);
}

TEST_F(FlightRecorderTest, AnFfmpegThatCannotBeStartedEndsIt) {
    install("exit 0\n", "/nowhere/at/all");
    ASSERT_TRUE(record(folder_.out("flight.mp4")));
    EXPECT_TRUE(problem_.starts_with("ffmpeg cannot be started: ")) << problem_;
    EXPECT_FALSE(recorder().isRunning());
    EXPECT_TRUE(folder_.results().empty());
    ASSERT_TRUE(record(folder_.out("flight"))) << "the next one may begin";
    EXPECT_EQ(problem_, "");
}

} // namespace
