// The window with a terrain and an image that are read, from a web server or a disk, while they are looked
// at.

#include "viewerwindow.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <QAbstractButton>
#include <QElapsedTimer>
#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTimer>
#include <QTreeWidget>
#include <QWheelEvent>

#include "controlpanel.h"
#include "failurelist.h"
#include "filenotices.h"
#include "support/recordedreports.h"
#include "support/scriptedhttpserver.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"
#include "viewertest.h"
#include "windowsystemclick.h"

#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/misc/patience.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

namespace {

namespace fs = std::filesystem;

class StreamedWindowTest : public ViewerTest {
protected:
    static void SetUpTestSuite() {
        for (const char * name : {"http_proxy", "all_proxy", "ALL_PROXY"})
            ::unsetenv(name);
        ::setenv("NETRC", "/dev/null", 1);
        s_files = std::make_unique<RunFolder>();
        const std::string terrain = s_files->out("t.ztt"), texture = s_files->out("t.zts");
        ASSERT_EQ(
            0, runProcess(ZMT_EXECUTABLE, {"build", "terrain", s_everest, terrain, "--level", "4"}, *s_files)
                   .status);
        ASSERT_EQ(
            0, runProcess(ZMT_EXECUTABLE,
                          {"build", "texture", s_everestImage, texture, "--terrain", terrain, "--tile", "64"},
                          *s_files)
                   .status);
    }
    static void TearDownTestSuite() { s_files.reset(); }

    void SetUp() override {
        server = std::make_unique<ScriptedHttpServer>();
        serve("1");
        ViewerTest::SetUp();
    }
    void TearDown() override {
        server->setHeld(false);
        window.reset();
    }
    /// All that was built, with this tag.
    void serve(const std::string & tag) const {
        for (const char * name : {"t.ztt", "t.zts", "t.prj"})
            server->setFile(std::string("/") + name, readWhole(s_files->out(name)), '"' + tag + '"');
    }
    TerrainMethod method() const override { return TerrainMethod::Auto; }

    std::string url(const std::string & path, const std::string & login = "") const {
        const std::string plain = NBX::StringUtils::WString2Utf8String(server->url(path));
        return "http://" + login + plain.substr(7);
    }
    /// Asks for detail that is not there yet.
    void goNearer() const {
        const QPointF place(middle());
        for (int i = 0; i < 12; ++i) {
            QWheelEvent event(place, view->mapToGlobal(place), {}, {0, 240}, Qt::NoButton, Qt::NoModifier,
                              Qt::NoScrollPhase, false);
            QApplication::sendEvent(view, &event);
        }
    }
    QPushButton * notice(const char * name) const {
        return window->statusBar()->findChild<QPushButton *>(name);
    }
    bool isTold(const char * name, const QString & words) const {
        return QTest::qWaitFor(
            [&] { return notice(name)->isVisible() && notice(name)->toolTip().contains(words); }, 20'000);
    }
    bool isUntold(const char * name) const {
        return QTest::qWaitFor([&] { return !notice(name)->isVisible(); }, 20'000);
    }
    /// Of which more is there than what is read to open it.
    std::string serveFineTerrain() const {
        SmallGeoTiff hills{700, 700};
        for (unsigned i = 0; i < 700 * 700; ++i)
            hills.heights.push_back(float(1000.0 + 300.0 * std::sin(i % 700 / 40.0) + i * 7919 % 89));
        const std::string fine = s_files->out("fine.ztt");
        EXPECT_EQ(0, runProcess(ZMT_EXECUTABLE,
                                {"build", "terrain", s_files->write("hills.tif", hills.encode()), fine,
                                 "--level", "5", "--lighting", "none"},
                                *s_files)
                         .status);
        server->setFile("/fine.ztt", readWhole(fine));
        return fine;
    }
    QString overlay() const { return view->findChild<QLabel *>("overlay")->text(); }
    bool statusSays(const QString & words, int milliseconds = 10'000) const {
        return QTest::qWaitFor(
            [&] {
                for (const QLabel * label : window->statusBar()->findChildren<QLabel *>())
                    if (label->text().contains(words)) return true;
                return false;
            },
            milliseconds);
    }
    static HttpAnswer broken() {
        HttpAnswer answer;
        answer.status = 503;
        answer.reason = "Service Unavailable";
        return answer;
    }

    static inline std::unique_ptr<RunFolder> s_files;
    std::unique_ptr<ScriptedHttpServer> server;
};

TEST_F(StreamedWindowTest, FiguresTellWhatIsKeptAskedForAndReceived) {
    load({url("/t.ztt"), url("/t.zts")});
    EXPECT_TRUE(overlay().contains(QRegularExpression("memory \\d+\\.\\d of 512 MiB")))
        << overlay().toStdString();
    EXPECT_TRUE(overlay().contains(QRegularExpression("graphics \\d+\\.\\d of 256 MiB")));
    EXPECT_TRUE(overlay().contains("0 requests"));
    EXPECT_TRUE(overlay().contains(QRegularExpression("\\d+\\.\\d MiB received")));
    load({s_jacksboro});
    EXPECT_FALSE(overlay().contains("requests")) << overlay().toStdString();
}

TEST_F(StreamedWindowTest, FilesOnADiskAreCountedApart) {
    load({s_files->out("t.ztt")});
    EXPECT_TRUE(overlay().contains(QRegularExpression("\\d+\\.\\d MiB read"))) << overlay().toStdString();
}

TEST_F(StreamedWindowTest, ShowsNeitherLoginsNorQueries) {
    load({url("/t.ztt", "me:secret@") + "?key=hidden", url("/t.zts", "me:secret@") + "?key=hidden"});
    EXPECT_EQ("t.ztt - zmt", window->windowTitle());
    EXPECT_EQ("Basic bWU6c2VjcmV0", server->received().front().fields.at("authorization"));
    server->always(broken());
    goNearer();
    ASSERT_TRUE(isTold("failureNotice", "cannot be read"));
    notice("failureNotice")->click();
    QStringList said = {window->windowTitle(), notice("failureNotice")->text()};
    for (const QWidget * widget : window->findChildren<QWidget *>()) {
        said += widget->toolTip();
        if (const auto * label = qobject_cast<const QLabel *>(widget)) said += label->text();
        if (const auto * button = qobject_cast<const QAbstractButton *>(widget)) said += button->text();
    }
    const auto * list = window->findChild<QWidget *>("failures")->findChild<QTreeWidget *>();
    ASSERT_TRUE(list);
    ASSERT_GT(list->topLevelItemCount(), 0);
    for (int column = 0; column < 4; ++column)
        said += list->topLevelItem(0)->text(column);
    window->open({url("/none.ztt", "me:secret@") + "?key=hidden"});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }, 20'000));
    said += window->lastError();
    said += window->statusBar()->currentMessage();
    EXPECT_TRUE(said.filter("secret").isEmpty()) << said.filter("secret").join("\n").toStdString();
    EXPECT_TRUE(said.filter("hidden").isEmpty()) << said.filter("hidden").join("\n").toStdString();
}

TEST_F(StreamedWindowTest, WhatCannotBeReadIsOneLineAndARecord) {
    load({url("/t.ztt")});
    EXPECT_FALSE(notice("failureNotice")->isVisible());
    server->always(broken());
    goNearer();
    ASSERT_TRUE(isTold("failureNotice", "503"));
    EXPECT_TRUE(view->landscape()) << "the picture keeps what it has";
    EXPECT_TRUE(window->lastError().isEmpty()) << "no box and no alarm";
    notice("failureNotice")->click();
    const auto * record = window->findChild<FailureList *>();
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->isVisible());
    const auto * list = record->findChild<QTreeWidget *>();
    ASSERT_GT(list->topLevelItemCount(), 0);
    EXPECT_EQ(QString::fromStdString(url("/t.ztt")), list->topLevelItem(0)->text(0));
    EXPECT_TRUE(list->topLevelItem(0)->text(1).contains(QRegularExpression("^[\\d,]+ bytes from [\\d,]+$")))
        << list->topLevelItem(0)->text(1).toStdString();
    EXPECT_TRUE(list->topLevelItem(0)->text(2).contains(QRegularExpression("^(in \\d+ s|now)$")));
    EXPECT_TRUE(list->topLevelItem(0)->text(3).contains("answered 503 Service Unavailable"));
    ASSERT_TRUE(item("t.ztt"));
    const auto * problem = layers().findChild<QLabel *>("layerProblem");
    EXPECT_TRUE(QTest::qWaitFor([&] { return problem->text().contains("answered 503 Service Unavailable"); }))
        << "beside its layer as well";
    EXPECT_FALSE(item("t.ztt")->icon(0).isNull());
    server->always({});
    EXPECT_TRUE(isUntold("failureNotice"));
    EXPECT_TRUE(settle());
    EXPECT_TRUE(QTest::qWaitFor([&] { return list->topLevelItemCount() == 0 && problem->text().isEmpty(); }));
    EXPECT_TRUE(item("t.ztt")->icon(0).isNull());
}

TEST_F(StreamedWindowTest, AFileThatChangesOnTheServerIsReloadedOnRequest) {
    load({url("/t.ztt"), url("/t.zts")});
    layers().toggle(0);
    ASSERT_TRUE(settle());
    serve("2");
    goNearer();
    ASSERT_TRUE(isTold("changeNotice", "changed"));
    const std::weak_ptr<Landscape> before = view->landscape();
    const auto eye = view->flight().eye(), forward = view->flight().forward();
    EXPECT_FALSE(before.expired()) << "the picture stays";
    notice("changeNotice")->click();
    EXPECT_TRUE(view->isPictureKept());
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_TRUE(before.expired());
    EXPECT_TRUE(isUntold("changeNotice"));
    EXPECT_TRUE(isUntold("failureNotice"));
    EXPECT_LT((eye - view->flight().eye()).length(), 1e-6);
    EXPECT_LT((forward - view->flight().forward()).length(), 1e-9);
    EXPECT_EQ((std::vector<bool>{false, true, true}), layersOn());
}

TEST_F(StreamedWindowTest, AFileThatIsReplacedOnTheDiskIsReloadedOnRequest) {
    const RunFolder folder;
    const std::string path = folder.write("t.ztt", readWhole(s_files->out("t.ztt")));
    folder.write("t.prj", readWhole(s_files->out("t.prj")));
    load({path});
    QTest::qWait(600);
    EXPECT_FALSE(notice("changeNotice")->isVisible());
    fs::rename(folder.write("other.ztt", readWhole(s_files->out("t.ztt"))), path);
    ASSERT_TRUE(isTold("changeNotice", "t.ztt has changed"));
    goNearer();
    ASSERT_TRUE(settle()) << "the one that is open goes on";
    const auto before = view->landscape();
    QTest::keyClick(view, Qt::Key_F5);
    ASSERT_TRUE(settle());
    EXPECT_NE(before, view->landscape());
    EXPECT_TRUE(isUntold("changeNotice"));
}

TEST_F(StreamedWindowTest, AReloadThatFailsKeepsWhatIsThere) {
    load({url("/t.ztt")});
    const auto before = view->landscape();
    server->always(broken());
    window->reload();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }, 20'000));
    EXPECT_EQ(before, view->landscape());
    EXPECT_TRUE(settle());
}

/// The corner of a terrain that begins elsewhere is the scene's origin: the eye stays on the map.
TEST_F(StreamedWindowTest, TheEyeStaysOnTheMapWhenATerrainBeginsElsewhere) {
    load({url("/t.ztt")});
    const auto eyeOnMap = ZMT::CORE::GeoTransformation::nbx2geoTf(view->flight().eye());
    const std::string other = s_files->out("j.ztt");
    ASSERT_EQ(0, runProcess(ZMT_EXECUTABLE,
                            {"build", "terrain", ZMT_DATA_DIR "/../tests/data/everest_30m_heights.tif", other,
                             "--level", "4"},
                            *s_files)
                     .status);
    server->setFile("/t.ztt", readWhole(other), "\"2\"");
    window->reload();
    ASSERT_TRUE(settle());
    const auto now = ZMT::CORE::GeoTransformation::nbx2geoTf(view->flight().eye());
    EXPECT_NEAR(eyeOnMap.x, now.x, 1e-3);
    EXPECT_NEAR(eyeOnMap.z, now.z, 1e-3);
}

TEST_F(StreamedWindowTest, HeightsUnderTheMouseAreTheFinestThatCome) {
    const std::string fine = serveFineTerrain();
    view->setGeometryError(50.0);
    load({url("/fine.ztt")});
    server->setHeld(true);
    QElapsedTimer longest;
    qint64 gap = 0;
    QTimer ticks;
    QObject::connect(&ticks, &QTimer::timeout, [&] { gap = std::max(gap, longest.restart()); });
    longest.start();
    ticks.start(10);
    QTest::mouseMove(view, middle() + QPoint(20, 20));
    QTest::mouseMove(view, middle() + QPoint(23, 23));
    ASSERT_TRUE(statusSays("height", 1000)) << "what is in sight answers at once";
    EXPECT_TRUE(statusSays("coarse: finer heights cannot be read", 5000));
    EXPECT_LT(gap, 1000) << "the window goes on";
    server->setHeld(false);
    QTest::mouseMove(view, middle());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !statusSays("coarse", 0); }));
    const auto place = view->groundAt(middle());
    ASSERT_TRUE(place);
    const auto terrain = ZMT::CORE::GRID::AsyncGridTerrain::load(NBX::StringUtils::Utf8String2WString(fine));
    const double exact = terrain->calculateHeight(*place, false);
    EXPECT_TRUE(statusSays(QString("height %1").arg(QLocale::c().toString(exact, 'f', 1))));
    EXPECT_FALSE(statusSays("coarse", 2500));
}

TEST_F(StreamedWindowTest, HeightsThatAreSlowAreNotToldToBeMissing) {
    serveFineTerrain();
    view->setGeometryError(50.0);
    load({url("/fine.ztt")});
    HttpAnswer drip;
    drip.secondsPerByte = 0.1;
    server->always(drip);
    QTest::mouseMove(view, middle() + QPoint(20, 20));
    QTest::mouseMove(view, middle() + QPoint(23, 23));
    EXPECT_TRUE(statusSays("coarse: finer heights are slow to come", 5000));
    EXPECT_FALSE(statusSays("cannot be read", 1500));
}

TEST_F(StreamedWindowTest, OpeningFromASilentServerCanBeCancelled) {
    server->setHeld(true);
    window->open({url("/t.ztt")});
    QElapsedTimer time;
    bool wasShown = false;
    QTimer::singleShot(600, [&] {
        auto * dialog = window->findChild<QProgressDialog *>();
        ASSERT_TRUE(dialog);
        wasShown = dialog->isVisible();
        time.start();
        QTest::mouseClick(dialog->findChild<QPushButton *>(), Qt::LeftButton);
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }, 10'000));
    EXPECT_TRUE(wasShown);
    EXPECT_LT(time.elapsed(), 500);
    EXPECT_TRUE(window->lastError().isEmpty());
    server->setHeld(false);
    load({url("/t.ztt")});
}

TEST_F(StreamedWindowTest, ASilentServerIsTold) {
    server->setHeld(true);
    QElapsedTimer time;
    time.start();
    window->open({url("/t.ztt")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }, 10'000));
    EXPECT_LT(time.elapsed(), 3000);
    EXPECT_TRUE(window->lastError().contains("silent")) << window->lastError().toStdString();
}

TEST_F(StreamedWindowTest, ClosesWithinASecondWhileItOpens) {
    server->setHeld(true);
    window->open({url("/t.ztt")});
    QElapsedTimer time;
    QTimer::singleShot(300, [&] {
        time.start();
        window->close();
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }, 10'000));
    EXPECT_FALSE(window->isVisible());
    window.reset();
    EXPECT_LT(time.elapsed(), 1000);
}

TEST_F(StreamedWindowTest, WaitsHandOnInputWhereSomebodyCopesWithIt) {
    QPushButton button("x");
    button.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&button));
    bool isClicked = false;
    QObject::connect(&button, &QPushButton::clicked, [&] { isClicked = true; });
    const RecordedReports reports; // of what cannot be opened
    const auto isClickedWhileOpening = [&] {
        isClicked = false;
        QTimer::singleShot(200, [&] { clickThroughWindowSystem(button.winId(), 5, 5); });
        EXPECT_FALSE(ZMT::CORE::AsyncFile::create(server->url("/t.ztt")));
        return isClicked;
    };
    server->setHeld(true);
    {
        const ZMT::CORE::Patience patience([&] { return isClicked; });
        EXPECT_TRUE(isClickedWhileOpening());
    }
    EXPECT_FALSE(isClickedWhileOpening()) << "it stays in the queue";
    EXPECT_TRUE(QTest::qWaitFor([&] { return isClicked; }));
}

TEST_F(StreamedWindowTest, ClosesWithinASecondWhileItStreams) {
    load({url("/t.ztt"), url("/t.zts")});
    server->setHeld(true);
    goNearer();
    ASSERT_TRUE(QTest::qWaitFor([&] { return server->workingNow() > 0; }));
    QElapsedTimer time;
    time.start();
    window->close();
    window.reset();
    EXPECT_LT(time.elapsed(), 1000);
    EXPECT_EQ(0U, ZMT::CORE::AsyncFile::pendingRequests());
}

} // namespace
