#pragma once

#include <memory>
#include <string>
#include <vector>

#include <QApplication>
#include <QDropEvent>
#include <QMimeData>
#include <QTest>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <nbx/image/image.h>

#include "controlpanel.h"
#include "landscapeview.h"
#include "layerpanel.h"
#include "viewerwindow.h"

// What the tests of the window open.
inline const std::string s_everest = ZMT_DATA_DIR "/../tests/data/everest_heights.tif";
inline const std::string s_everestImage = ZMT_DATA_DIR "/../tests/data/everest_image.tif";
inline const std::string s_detailImage = ZMT_DATA_DIR "/../tests/data/everest_image_detail.tif";
inline const std::string s_jacksboro = ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif";

/// A window on the screen of the test, with nothing in it at first.
class ViewerTest : public ::testing::Test {
protected:
    void SetUp() override {
        LandscapeOptions options;
        options.tree.maxVertices = 200;
        options.method = method();
        makeWindow(options, View(), 700, 480);
    }
    void makeWindow(const LandscapeOptions & options, const View & start, int width, int height) {
        window.reset();
        window = std::make_unique<ViewerWindow>(options, start);
        window->resize(width, height);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        activate();
        view = window->view();
        ASSERT_TRUE(QTest::qWaitFor([&] { return view->canvas() != nullptr; }));
    }

    virtual TerrainMethod method() const { return TerrainMethod::Tree; }

    /// Waits until everything opened is shown and at rest.
    bool settle() const {
        return QTest::qWaitFor([&] { return !window->loader()->isRunning() && view->isComplete(); }, 60'000);
    }
    void load(const std::vector<std::string> & files) const {
        window->open(files);
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
        activate();
    }
    /// No window manager does it: keys go to the window, also after a dialog was closed.
    void activate() const {
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }

    void drop(const std::vector<std::string> & files) const {
        QMimeData data;
        QList<QUrl> urls;
        for (const std::string & file : files)
            urls.append(QUrl::fromLocalFile(QString::fromStdString(file)));
        data.setUrls(urls);
        QDragEnterEvent enter({20, 20}, Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(window.get(), &enter);
        EXPECT_TRUE(enter.isAccepted());
        QDropEvent event(QPointF(20, 20), Qt::CopyAction, &data, Qt::LeftButton, {});
        QApplication::sendEvent(window.get(), &event);
    }

    NBX::SO<NBX::Image> picture() const { return view->canvas()->snapshot(); }
    /// Share of the pixels that differ; 1 for pictures of different size.
    static double difference(const NBX::SO<NBX::Image> & a, const NBX::SO<NBX::Image> & b) {
        if (!a || !b || a->width() != b->width() || a->height() != b->height()) return 1.0;
        unsigned different = 0;
        for (int y = 0; y < a->height(); ++y)
            for (int x = 0; x < a->width(); ++x)
                different += !std::equal(a->pixelComponentsU8(x, y), a->pixelComponentsU8(x, y) + 3,
                                         b->pixelComponentsU8(x, y));
        return double(different) / (double(a->width()) * a->height());
    }
    LayerPanel & layers() const { return *window->panel()->layers(); }
    /// Their items: what lies on the ground, the lowest first, then cities, as keys switch them.
    QList<QTreeWidgetItem *> switches() const {
        QList<QTreeWidgetItem *> items;
        for (const auto kind : {LayerEntry::Kind::Ground, LayerEntry::Kind::City})
            for (std::size_t i = layers().entries().size(); i-- > 0;)
                if (layers().entries()[i].kind == kind) items.append(layers().list()->topLevelItem(int(i)));
        return items;
    }
    /// Which of those on the ground are on.
    std::vector<bool> layersOn() const {
        std::vector<bool> on;
        for (const GroundLayer & layer : view->landscape()->layers())
            on.push_back(layer.isOn);
        return on;
    }
    /// The item of a layer with this name; selected, so that what it has stands below the list.
    QTreeWidgetItem * item(const QString & name) const {
        const auto found = layers().list()->findItems(name, Qt::MatchExactly);
        if (found.empty()) return nullptr;
        layers().list()->setCurrentItem(found.front());
        return found.front();
    }
    QPoint middle() const { return view->rect().center(); }

    std::unique_ptr<ViewerWindow> window;
    LandscapeView * view = nullptr;
};
