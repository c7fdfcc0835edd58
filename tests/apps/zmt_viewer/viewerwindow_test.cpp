#include "viewerwindow.h"

#include <cstdlib>
#include <filesystem>

#include <QApplication>
#include <QClipboard>
#include <QColor>
#include <QImage>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QSlider>
#include <QStatusBar>

#include "landscape/memorybudgets.h"
#include "support/imagecompare.h"
#include "support/smallgeotiff.h"
#include "support/zmtrun.h"
#include "viewertest.h"

#include <nbx/object/errorhandler.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace {

class ViewerWindowTest : public ViewerTest {
protected:
    QSlider * slider(const char * name) const {
        return window->panel()->findChild<QWidget *>(name)->findChild<QSlider *>();
    }
    void press(Qt::Key key) const { QTest::keyClick(view, key); }

    /// The view as the user sees it.
    QImage seen() const { return view->grab().toImage(); }
    using ViewerTest::difference;
    /// Share of the pixels whose colours are far apart; of pictures of two sizes, one is scaled to the
    /// other's.
    static double difference(const QImage & a, const QImage & other) {
        if (a.isNull() || other.isNull()) return 1.0;
        const QImage b = other.scaled(a.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        constexpr int far = 40;
        unsigned different = 0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) {
                const QColor p = a.pixelColor(x, y), q = b.pixelColor(x, y);
                different += std::abs(p.red() - q.red()) > far || std::abs(p.green() - q.green()) > far ||
                             std::abs(p.blue() - q.blue()) > far;
            }
        return double(different) / (double(a.width()) * a.height());
    }

    void clickCancel() const {
        auto * dialog = window->findChild<QProgressDialog *>();
        ASSERT_TRUE(dialog);
        dialog->findChild<QPushButton *>()->click();
    }
    /// Waits for the end of a load that fails, and answers the message box.
    std::string failure() const {
        if (!QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }, 60'000)) return "no failure";
        auto * box = window->findChild<QMessageBox *>();
        if (!box) return "no message box";
        const QString text = box->informativeText();
        box->close();
        return text.toStdString();
    }
};

TEST_F(ViewerWindowTest, TellsWhatItShows) {
    EXPECT_EQ("zmt", window->windowTitle());
    load({s_everest});
    EXPECT_EQ("everest_heights.tif - zmt", window->windowTitle());
    EXPECT_EQ(2, switches().size());
    QTest::mouseMove(view, middle());
    QTest::mouseMove(view, middle() + QPoint(3, 3));
    EXPECT_TRUE(QTest::qWaitFor([&] {
        for (const QLabel * label : window->statusBar()->findChildren<QLabel *>())
            if (label->text().contains("height")) return true;
        return false;
    }));
}

TEST_F(ViewerWindowTest, NamesTheSystemOfItsCoordinates) {
    const auto label = [&](const QString & words) -> const QLabel * {
        for (const QLabel * found : window->statusBar()->findChildren<QLabel *>())
            if (found->text().contains(words)) return found;
        return nullptr;
    };
    load({s_everest});
    const auto isTold = [&](const QString & words) {
        QTest::mouseMove(view, middle());
        QTest::mouseMove(view, middle() + QPoint(3, 3));
        return QTest::qWaitFor([&] { return label(words) != nullptr; });
    };
    ASSERT_TRUE(isTold("   EPSG:32645"));
    EXPECT_EQ("Map coordinates: WGS 84 / UTM zone 45N (EPSG:32645), metre",
              label("   EPSG:32645")->toolTip());
    EXPECT_TRUE(label("EPSG:32645")->text().startsWith("x "));
    const auto onGlobe = [&] {
        const auto place = view->groundAt(middle() + QPoint(3, 3));
        const auto expected =
            ZMT::RASTER::CoordinateSystem(view->landscape()->reference().wkt).toLonLat({place->x, place->z});
        return QString("   longitude %1   latitude %2")
            .arg(expected->longitude, 0, 'f', 6)
            .arg(expected->latitude, 0, 'f', 6);
    };
    EXPECT_TRUE(label("EPSG:32645")->text().endsWith(onGlobe())) << onGlobe().toStdString();

    View globe;
    globe.isLonLat = true;
    window = std::make_unique<ViewerWindow>(LandscapeOptions(), globe);
    window->resize(700, 480);
    window->show();
    view = window->view();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view->canvas() != nullptr; }));
    load({s_everest});
    ASSERT_TRUE(isTold("   EPSG:4326"));
    const auto place = view->groundAt(middle() + QPoint(3, 3));
    ASSERT_TRUE(place);
    const auto expected =
        ZMT::RASTER::CoordinateSystem(view->landscape()->reference().wkt).toLonLat({place->x, place->z});
    EXPECT_TRUE(isTold(QString("longitude %1   latitude %2   height %3")
                           .arg(expected->longitude, 0, 'f', 6)
                           .arg(expected->latitude, 0, 'f', 6)
                           .arg(place->y, 0, 'f', 1)));
}

TEST_F(ViewerWindowTest, ImagesAreLayers) {
    load({s_everest, s_everestImage, s_detailImage});
    ASSERT_EQ(4, switches().size());
    EXPECT_EQ("everest_image.tif", switches()[2]->text(0));
}

TEST_F(ViewerWindowTest, LayerThatIsOffIsNotSeen) {
    load({s_everest, s_everestImage});
    press(Qt::Key_R);
    ASSERT_TRUE(settle());
    const auto all = picture();
    for (const Qt::Key key : {Qt::Key_1, Qt::Key_2, Qt::Key_3}) {
        press(key);
        ASSERT_TRUE(settle());
        EXPECT_FALSE(switches()[key - Qt::Key_1]->checkState(0));
        EXPECT_GT(difference(all, picture()), 0.001) << char(key);
        press(key);
        ASSERT_TRUE(settle());
        EXPECT_LT(difference(all, picture()), 1e-3) << char(key);
    }
    press(Qt::Key_9);
    EXPECT_TRUE(settle());
}

TEST_F(ViewerWindowTest, LargerErrorDrawsLess) {
    load({s_everest});
    slider("geometryError")->setValue(slider("geometryError")->minimum());
    ASSERT_TRUE(settle());
    const auto fine = view->frames().drawn;
    slider("geometryError")->setValue(slider("geometryError")->maximum());
    ASSERT_TRUE(settle());
    EXPECT_LT(view->frames().drawn.triangles, fine.triangles);
    EXPECT_LT(view->frames().drawn.patches, fine.patches);
    slider("textureError")->setValue(slider("textureError")->maximum());
    EXPECT_TRUE(settle());
}

TEST_F(ViewerWindowTest, MemoryIsASetting) {
    const MemoryBudgets before = presentMemoryBudgets();
    ASSERT_TRUE(slider("memory"));
    for (const char * name : {"memory", "graphicsMemory"}) {
        bool isShown = false;
        for (const QLabel * label : window->panel()->findChild<QWidget *>(name)->findChildren<QLabel *>())
            isShown = isShown || label->text() == (name == std::string("memory") ? "512 MiB" : "256 MiB");
        EXPECT_TRUE(isShown) << name;
    }
    load({s_everest});
    slider("memory")->setValue(slider("memory")->minimum());
    slider("graphicsMemory")->setValue(slider("graphicsMemory")->maximum());
    EXPECT_EQ(16U, presentMemoryBudgets().main);
    EXPECT_EQ(4095U, presentMemoryBudgets().graphics);
    EXPECT_TRUE(settle());
    applyMemoryBudgets(before);
}

TEST_F(ViewerWindowTest, ExaggerationSliderChangesThePicture) {
    load({s_everest});
    const auto before = picture();
    slider("exaggeration")->setValue(slider("exaggeration")->maximum() * 3 / 4);
    ASSERT_TRUE(settle());
    EXPECT_GT(view->landscape()->exaggeration(), 2.0);
    EXPECT_GT(difference(before, picture()), 0.1);
}

TEST_F(ViewerWindowTest, WireframeAndPatchColorsComeAndGo) {
    load({s_everest, s_everestImage});
    const auto before = picture();
    for (const Qt::Key key : {Qt::Key_F, Qt::Key_P}) {
        press(key);
        ASSERT_TRUE(settle());
        EXPECT_GT(difference(before, picture()), 0.1) << char(key);
        press(key);
        ASSERT_TRUE(settle());
        EXPECT_LT(difference(before, picture()), 1e-3) << char(key);
    }
}

TEST_F(ViewerWindowTest, CanceledLoadLeavesAnEmptyWindow) {
    window->open({s_everest});
    clickCancel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }, 60'000));
    EXPECT_FALSE(view->landscape());
    EXPECT_TRUE(window->lastError().isEmpty());
    EXPECT_TRUE(window->statusBar()->currentMessage().contains("cancelled"));
    EXPECT_TRUE(switches().empty());
    load({s_jacksboro});
}

TEST_F(ViewerWindowTest, CanceledLoadKeepsWhatWasShown) {
    load({s_everest});
    const auto before = picture();
    window->open({s_jacksboro});
    EXPECT_FALSE(view->landscape());
    clickCancel();
    ASSERT_TRUE(settle());
    EXPECT_EQ("everest_heights.tif - zmt", window->windowTitle());
    EXPECT_LT(difference(before, picture()), 1e-3);
    EXPECT_TRUE(view->groundAt(middle()));
}

TEST_F(ViewerWindowTest, LastPictureStaysUntilTheNextIsComplete) {
    load({s_everest});
    const QImage before = seen();
    window->open({s_jacksboro});
    EXPECT_FALSE(view->landscape()) << "nothing is drawn of a scene whose origin changes";
    EXPECT_LT(difference(before, seen()), 0.1) << "all but the figures over it";
    const auto * kept = view->findChild<QLabel *>("picture");
    ASSERT_TRUE(kept);
    bool isCovered = true;
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            isCovered = isCovered && (!view->isPictureKept() || kept->geometry() == view->rect());
            return !view->isPictureKept();
        },
        60'000));
    EXPECT_TRUE(isCovered);
    EXPECT_TRUE(view->isComplete()) << "the picture behind it is whole";
    EXPECT_GT(difference(before, seen()), 0.1);
    EXPECT_EQ("jacksboro_heights.tif - zmt", window->windowTitle());
}

TEST_F(ViewerWindowTest, KeptPictureFollowsTheSizeOfTheWindow) {
    load({s_everest});
    window->open({s_jacksboro});
    const QSize before = view->size();
    // What was loaded arrives in the event loop, which does not run here; sizes are laid out at once.
    window->resize(900, 700);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    ASSERT_TRUE(view->isPictureKept());
    ASSERT_NE(before, view->size());
    const auto * kept = view->findChild<QLabel *>("picture");
    ASSERT_TRUE(kept);
    EXPECT_EQ(view->rect(), kept->geometry());
    ASSERT_TRUE(settle());
    EXPECT_FALSE(view->isPictureKept());
}

TEST_F(ViewerWindowTest, KeptPictureGoesWhenTheLoadFailsOrIsCanceled) {
    const RunFolder folder;
    load({s_everest});
    const QImage before = seen();
    drop({folder.write("bad.tif", "this is no raster")});
    EXPECT_TRUE(view->isPictureKept());
    EXPECT_NE(std::string::npos, failure().find("bad.tif"));
    ASSERT_TRUE(settle());
    EXPECT_FALSE(view->isPictureKept());
    EXPECT_LT(difference(before, seen()), 0.05);
    window->open({s_jacksboro});
    EXPECT_TRUE(view->isPictureKept());
    clickCancel();
    ASSERT_TRUE(settle());
    EXPECT_FALSE(view->isPictureKept());
    EXPECT_LT(difference(before, seen()), 0.05);
}

TEST_F(ViewerWindowTest, EmptyWindowHasNoPictureToKeep) {
    window->open({s_everest});
    EXPECT_FALSE(view->isPictureKept());
    EXPECT_TRUE(settle());
}

TEST_F(ViewerWindowTest, KeptPictureGivesWayToTheFirstMove) {
    load({s_everest});
    const auto landscape = view->landscape();
    view->keepPicture();
    view->keepPicture();
    ASSERT_TRUE(view->isPictureKept());
    view->resetView();
    EXPECT_TRUE(view->isPictureKept()) << "there is nothing to move";
    view->setLandscape(landscape, {});
    EXPECT_TRUE(view->isPictureKept()) << "nothing has been drawn yet";
    view->resetView();
    EXPECT_FALSE(view->isPictureKept());
    EXPECT_TRUE(settle());
}

TEST_F(ViewerWindowTest, DroppedImageLiesOnTop) {
    load({s_everest});
    QTest::keyClick(view, Qt::Key_R);
    ASSERT_TRUE(settle());
    const auto before = picture();
    const auto eye = view->flight().eye();
    drop({s_everestImage});
    ASSERT_TRUE(settle());
    EXPECT_EQ(3, switches().size());
    EXPECT_EQ(0.0, (eye - view->flight().eye()).length()) << "the view stays";
    EXPECT_GT(difference(before, picture()), 0.001);
}

TEST_F(ViewerWindowTest, DroppedImageChangesNothingElse) {
    load({s_everest, s_everestImage});
    press(Qt::Key_1);
    press(Qt::Key_3);
    slider("exaggeration")->setValue(slider("exaggeration")->maximum() * 3 / 4);
    ASSERT_TRUE(settle());
    const auto landscape = view->landscape();
    const double exaggeration = landscape->exaggeration();
    drop({s_detailImage});
    ASSERT_TRUE(settle());
    EXPECT_EQ(landscape, view->landscape()) << "the terrain is not built again";
    EXPECT_EQ(exaggeration, view->landscape()->exaggeration());
    EXPECT_EQ((std::vector<bool>{false, true, false, true}), layersOn());
    EXPECT_FALSE(landscape->layers()[0].effect->isEnabled());
    EXPECT_TRUE(landscape->layers()[3].effect->isEnabled());
}

TEST_F(ViewerWindowTest, LayersStayOffAfterALoadThatFails) {
    const RunFolder folder;
    load({s_everest});
    press(Qt::Key_2);
    ASSERT_TRUE(settle());
    const auto before = picture();
    drop({folder.write("bad.tif", "this is no raster")});
    EXPECT_NE(std::string::npos, failure().find("bad.tif"));
    ASSERT_TRUE(settle());
    EXPECT_EQ((std::vector<bool>{true, false}), layersOn());
    EXPECT_LT(difference(before, picture()), 1e-3);
}

TEST_F(ViewerWindowTest, DamagedImageIsReported) {
    const RunFolder folder;
    SmallGeoTiff image{64, 64};
    image.pixels = SmallGeoTiff::Pixels::Colors;
    image.colors.assign(3UL * 64 * 64, 128);
    image.west = 480000.0;
    image.north = 3100000.0;
    image.cell = 300.0;
    const std::string whole = image.encode();
    load({s_everest});
    drop({folder.write("cut.tif", whole.substr(0, whole.size() / 2))});
    EXPECT_NE(std::string::npos, failure().find("cut.tif"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(2, switches().size());
}

TEST_F(ViewerWindowTest, ReportsAreShown) {
    load({s_everest});
    NBX_REPORT(2, L"false", L"a tile is gone");
    view->redraw();
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->lastError() == "a tile is gone"; }));
    EXPECT_EQ("a tile is gone", window->statusBar()->currentMessage());
}

TEST_F(ViewerWindowTest, EdgesAndPatchesMayBeShownFromTheStart) {
    load({s_everest});
    const auto before = picture();
    window->setPatches(true);
    ASSERT_TRUE(settle());
    const auto patches = picture();
    EXPECT_GT(difference(before, patches), 0.1);
    window->setWireframe(true);
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(patches, picture()), 0.1);
    window->setWireframe(false);
    window->setPatches(false);
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(before, picture()), 1e-3);
}

TEST_F(ViewerWindowTest, DroppedHeightsTakeTheTerrainsPlace) {
    load({s_everest, s_everestImage});
    drop({s_jacksboro});
    ASSERT_TRUE(settle());
    EXPECT_EQ("jacksboro_heights.tif - zmt", window->windowTitle());
    EXPECT_EQ(2, switches().size());
}

TEST_F(ViewerWindowTest, BadFileIsReportedAndChangesNothing) {
    const RunFolder folder;
    load({s_everest});
    const auto before = picture();
    drop({folder.write("bad.tif", "this is no raster")});
    EXPECT_NE(std::string::npos, failure().find("bad.tif"));
    EXPECT_TRUE(window->statusBar()->currentMessage().contains("bad.tif"));
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(before, picture()), 1e-3);
}

TEST_F(ViewerWindowTest, ImageWithoutATerrainIsReported) {
    drop({s_everestImage});
    EXPECT_NE(std::string::npos, failure().find("height raster"));
    EXPECT_FALSE(view->landscape());
}

TEST_F(ViewerWindowTest, ImageThatLiesElsewhereIsReported) {
    load({s_jacksboro});
    drop({s_everestImage});
    EXPECT_NE("no failure", failure());
    ASSERT_TRUE(settle());
    EXPECT_EQ(2, switches().size());
}

TEST_F(ViewerWindowTest, DropsWithoutFilesAreRefused) {
    QMimeData data;
    data.setText("words");
    QDragEnterEvent enter({20, 20}, Qt::CopyAction, &data, Qt::LeftButton, {});
    enter.ignore();
    QApplication::sendEvent(window.get(), &enter);
    EXPECT_FALSE(enter.isAccepted());
    data.setUrls({QUrl("http://localhost/a.tif")});
    QApplication::sendEvent(window.get(), &enter);
    EXPECT_FALSE(enter.isAccepted());
}

TEST_F(ViewerWindowTest, SecondLoadWaitsForTheFirst) {
    window->open({s_everest});
    window->open({s_jacksboro});
    ASSERT_TRUE(settle());
    EXPECT_EQ("everest_heights.tif - zmt", window->windowTitle());
}

TEST_F(ViewerWindowTest, SavesThePicture) {
    const RunFolder folder;
    load({s_everest});
    EXPECT_TRUE(window->savePicture(folder.out("picture.png")));
    const auto saved = readPng(folder.out("picture.png"));
    ASSERT_TRUE(saved);
    EXPECT_LT(difference(saved, picture()), 1e-9);
    EXPECT_FALSE(window->savePicture("/nowhere/at/all.png"));
    EXPECT_NE(std::string::npos, failure().find("/nowhere"));
}

TEST_F(ViewerWindowTest, DoesNotSaveAPictureOverAFileThatItShows) {
    const RunFolder folder;
    const std::string terrain = folder.write("t.tif", readWhole(s_everest));
    const std::string image = folder.write("i.tif", readWhole(s_everestImage));
    load({terrain, image});
    for (const std::string & path : {terrain, image}) {
        EXPECT_FALSE(window->savePicture(path));
        EXPECT_TRUE(window->lastError().contains(QString::fromStdString(path)))
            << window->lastError().toStdString();
    }
    EXPECT_EQ(readWhole(s_everest), readWhole(terrain));
    EXPECT_EQ(readWhole(s_everestImage), readWhole(image));
}

const std::string s_glaciers = ZMT_DATA_DIR "/everest_glaciers.geojson";
const std::string s_contours = ZMT_DATA_DIR "/../tests/data/everest_contours.geojson";

TEST_F(ViewerWindowTest, AreasOfTheCommandLineAreALayer) {
    load({s_everest, s_everestImage});
    const auto before = picture();
    window->open({s_glaciers}, VectorUse::Shape);
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    ASSERT_EQ(4, switches().size());
    EXPECT_EQ("everest_glaciers.geojson", switches()[3]->text(0));
    const auto draped = picture();
    EXPECT_GT(difference(before, draped), 1e-4);
    press(Qt::Key_4);
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(before, picture()), 1e-4) << "switched off";
    press(Qt::Key_4);
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(draped, picture()), 1e-4);
    drop({s_detailImage});
    ASSERT_TRUE(settle());
    ASSERT_EQ(5, switches().size());
    EXPECT_EQ("everest_image_detail.tif", switches()[3]->text(0)) << "below what is draped";
    EXPECT_EQ("everest_glaciers.geojson", switches()[4]->text(0));
}

TEST_F(ViewerWindowTest, LinesOfTheCommandLineBecomeEdges) {
    window->open({s_everest, s_contours}, VectorUse::Shape);
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_EQ(2, switches().size());
    EXPECT_TRUE(view->landscape()->tree());
    EXPECT_TRUE(view->landscape()->grid().hasCellShapes());
}

TEST_F(ViewerWindowTest, TheViewIsCopiedAsTheCommandLineTakesIt) {
    load({s_everest});
    slider("exaggeration")->setValue(slider("exaggeration")->maximum() * 3 / 4);
    QTest::keyPress(view, Qt::Key_D);
    QTest::qWait(200);
    QTest::keyRelease(view, Qt::Key_D);
    ASSERT_TRUE(settle());
    QTest::keyClick(view, Qt::Key_C, Qt::ControlModifier);
    const QStringList words = QApplication::clipboard()->text().split(' ');
    ASSERT_EQ(4, words.size()) << words.join(" ").toStdString();
    EXPECT_EQ("--view", words[0]);
    EXPECT_EQ("--exaggeration", words[2]);
    const double exaggeration = words[3].toDouble();
    EXPECT_DOUBLE_EQ(view->landscape()->exaggeration(), exaggeration);
    const Viewpoint copied =
        findViewpoint(parseView(words[1].toStdString()), view->landscape()->viewedGround(), 1.0);
    EXPECT_LT((copied.eye - view->flight().eye()).length(), 0.02);
    const auto direction = (copied.aim - copied.eye).normalized();
    EXPECT_LT((direction - view->flight().forward()).length(), 1e-5);
}

TEST_F(ViewerWindowTest, CoordinatesFollowTheViewUnderTheMouse) {
    load({s_everest});
    const auto shown = [&] {
        for (const QLabel * label : window->statusBar()->findChildren<QLabel *>())
            if (label->text().contains("height")) return label->text();
        return QString();
    };
    const auto agrees = [&] {
        const auto ground = view->groundAt(middle());
        return ground && shown().contains("x " + QLocale::c().toString(ground->x, 'f', 1)) &&
               shown().contains("y " + QLocale::c().toString(ground->z, 'f', 1));
    };
    QTest::mouseMove(view, middle() + QPoint(3, 3));
    QTest::mouseMove(view, middle());
    ASSERT_TRUE(QTest::qWaitFor(agrees));
    const QString first = shown();
    QTest::keyPress(view, Qt::Key_D);
    QTest::qWait(300);
    QTest::keyRelease(view, Qt::Key_D);
    ASSERT_TRUE(QTest::qWaitFor(agrees));
    EXPECT_NE(first, shown());
    press(Qt::Key_R);
    ASSERT_TRUE(QTest::qWaitFor(agrees));
    EXPECT_EQ(first, shown());
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view, &leave);
    EXPECT_EQ("", shown());
}

TEST_F(ViewerWindowTest, OnePatchIsOne) {
    const RunFolder folder;
    SmallGeoTiff flat{10, 10};
    flat.heights.assign(100, 500.0F);
    load({folder.write("flat.tif", flat.encode())});
    const auto * overlay = view->findChild<QLabel *>("overlay");
    EXPECT_EQ(1U, view->frames().drawn.patches);
    EXPECT_TRUE(overlay->text().contains("1 patch ")) << overlay->text().toStdString();
}

TEST_F(ViewerWindowTest, IsUsableWhenItIsSmall) {
    load({s_everest, s_everestImage});
    window->resize(480, 280);
    ASSERT_TRUE(settle());
    EXPECT_LE(window->width(), 480);
    EXPECT_LE(window->height(), 280);
    const auto * overlay = view->findChild<QLabel *>("overlay");
    EXPECT_LE(overlay->geometry().right(), view->width()) << overlay->text().toStdString();
}

TEST_F(ViewerWindowTest, ClosesWhileItLoadsThoughADialogIsOpen) {
    window->open({s_everest});
    auto * dialog = window->findChild<QProgressDialog *>();
    ASSERT_TRUE(dialog);
    EXPECT_FALSE(dialog->isModal());
    dialog->show();
    EXPECT_TRUE(window->close());
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }, 60'000));
    EXPECT_FALSE(view->landscape());
}

TEST_F(ViewerWindowTest, EscapeCloses) {
    press(Qt::Key_Escape);
    EXPECT_FALSE(window->isVisible());
}

TEST_F(ViewerWindowTest, ClosesWhileItLoads) {
    window->open({s_everest});
    window.reset();
}

class SampleWindowTest : public ViewerWindowTest {
protected:
    const QLabel * hint() const { return view->findChild<QLabel *>("hint"); }
    /// Smaller than what is installed, under its names.
    void openSample() {
        folder_.write("everest_srtm3.tif", readWhole(s_everest));
        folder_.write("everest_landsat7_rgb.tif", readWhole(s_everestImage));
        window->openSample(SampleFiles::in(folder_.in("")));
        ASSERT_TRUE(settle());
    }

    RunFolder folder_;
};

TEST_F(SampleWindowTest, IsShownWithAHint) {
    EXPECT_TRUE(hint()->isVisible());
    EXPECT_TRUE(hint()->text().contains("a height raster")) << hint()->text().toStdString();
    const int center = hint()->geometry().center().y();
    EXPECT_NEAR(center, view->height() / 2, 3);
    openSample();
    EXPECT_EQ(window->windowTitle(), "everest_srtm3.tif - zmt");
    EXPECT_EQ(view->landscape()->layers().size(), 3U);
    EXPECT_TRUE(hint()->text().contains("sample")) << hint()->text().toStdString();
    EXPECT_TRUE(hint()->isVisible());
    EXPECT_GT(hint()->geometry().top(), view->height() / 2) << "out of the way";
    for (const int width : {700, 480}) {
        window->resize(width, 480);
        ASSERT_TRUE(settle());
        const auto * bar = view->findChild<QWidget *>("scaleBar");
        ASSERT_TRUE(bar->isVisible());
        EXPECT_FALSE(hint()->geometry().intersects(bar->geometry())) << width;
        EXPECT_LE(hint()->heightForWidth(hint()->width()), hint()->height()) << width;
    }
    window->openSample(std::nullopt);
    EXPECT_FALSE(window->loader()->isRunning());
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(hint()->isVisible()) << "it is still the sample";
    window->setContours(500.0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(view->landscape()->contours(), 500.0);
    EXPECT_EQ(view->landscape()->layers().size(), 3U);
    EXPECT_TRUE(hint()->isVisible()) << "its contour lines are no other landscape";
}

TEST_F(SampleWindowTest, GivesWayToWhateverIsOpened) {
    openSample();
    drop({s_everestImage});
    EXPECT_NE(failure().find("open the height raster"), std::string::npos);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(hint()->isVisible()) << "it stays while nothing else came";
    EXPECT_EQ(view->landscape()->layers().size(), 3U);
    drop({s_jacksboro});
    ASSERT_TRUE(settle());
    EXPECT_EQ(window->shownFile(), s_jacksboro);
    EXPECT_EQ(view->landscape()->layers().size(), 2U);
    EXPECT_FALSE(hint()->isVisible());
    drop({ZMT_DATA_DIR "/jacksboro_dam.geojson"});
    ASSERT_TRUE(settle());
    EXPECT_EQ(std::as_const(*view->landscape()).overlays().list().size(), 1U) << "what is open gets more";
}

} // namespace
