#pragma once

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <numbers>
#include <string>

#include <gtest/gtest.h>

#include <unistd.h>

#include <GL/glew.h>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/math/color.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <support/imagecompare.h>
#include <support/recordedreports.h>
#include <zmt/core/misc/thread.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

/// Pictures of a city by its trees, and of the models themselves as what they are held against: without
/// light, with the same filters. They are the middle of 1280 by 720 pixels; with ZMT_FULL_PICTURES in the
/// environment they are all of these, which takes four times as long. With ZMT_KEEP_PICTURES, the name of a
/// folder, they are kept there.
class CityPictures : public testing::Test {
protected:
    using V = NBX::Vector3Base<double>;
    using Tree = ZMT::CORE::TexturedTriangleTree;
    template <class T> using SO = NBX::SO<T>;

    struct Options {
        double distance = 20.0;
        int atlasSize = 1024;
        Tree::TextureFormat format = Tree::TextureFormatRGBA8;
        bool isUnique = false;
    };
    struct View {
        std::string name;
        V from, to;
    };

    /// Of source textures, of atlases from where they replace these, and where nothing but the textures
    /// themselves goes into their coarse levels.
    static constexpr double s_near = 0.97, s_atDistance = 0.90, s_farAway = 0.94;
    static constexpr double s_mostSilhouettes = 0.002;

    CityPictures() {
        std::filesystem::create_directories(folder);
        canvas->setBackgroundColor(background());
        canvas->append(root.get());
    }
    ~CityPictures() override {
        Tree::setDefaultTextureFormat(Tree::TextureFormatRGBA5551);
        Tree::enforceUniqueTextureParameterization(false);
        std::filesystem::remove_all(folder);
        EXPECT_TRUE(reports.empty()) << reports;
    }

    /// The colour of no model, about as bright as most are.
    static NBX::Color background() { return {1.0F, 0.0F, 1.0F, 1.0F}; }

    SO<NBX::SceneThing> treesOf(const SO<NBX::SceneThing> & scene, const Options & options) {
        Tree::setDefaultTextureFormat(options.format);
        Tree::enforceUniqueTextureParameterization(options.isUnique);
        const std::string name = folder + "/" + std::to_string(++builds_) + ".city";
        return Tree::createOptimizedScene(scene, options.distance, NBX::StringUtils::Utf8String2WString(name),
                                          true, 1.0, 800, 90.0, options.atlasSize, nullptr);
    }
    /// The models as they are, in the passes in which the trees' scene is drawn.
    static SO<NBX::SceneThing> sourcesOf(const SO<NBX::SceneThing> & scene) {
        SO<NBX::SceneThing> opaque, transparent;
        NBX::SceneGraphAnalyzer::splitScene(scene.get(), 0.9, opaque, transparent);
        const SO<NBX::SceneThing> solid(new NBX::SceneThing), seenThrough(new NBX::SceneThing);
        solid->append(new NBX::FaceStyle(2, 3, 3));
        solid->append(opaque.get());
        solid->append(NBX::ColorBufferGL::newAlphaTest(true, GL_GREATER, 0.8));
        solid->append(new NBX::FaceStyle(2, 2, 3));
        solid->append(transparent.get());
        seenThrough->append(NBX::ColorBufferGL::newAlphaTest(true, GL_LEQUAL, 0.8));
        seenThrough->append(NBX::ColorBufferGL::newBlending(true, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
        seenThrough->append(new NBX::DepthBufferGL(2, false, true, GL_LESS, 0.0, 1.0));
        seenThrough->append(new NBX::FaceStyle(2, 2, 3));
        seenThrough->append(transparent.get());
        SO<NBX::SceneThing> sources(new NBX::SceneThing);
        sources->append(new NBX::LightModelGL(2, NBX::Color::black));
        sources->append(solid.get());
        sources->append(seenThrough.get());
        return sources;
    }

    /// Once nothing more is on its way. A pixel is what it is on 800 pixels and 90 degrees, for which
    /// distances are meant.
    SO<NBX::Image> picture(const SO<NBX::SceneThing> & city, const View & view) {
        using ZMT::CORE::TTTMemoryController;
        const double tangent = canvas->getHeight() / 800.0, degrees = 180.0 / std::numbers::pi;
        const SO<NBX::LookAt> eye(new NBX::LookAt(view.from, view.to));
        root->clear();
        root->append(new NBX::Camera(eye.get(),
                                     new NBX::Perspective(2.0 * std::atan(tangent) * degrees, 0.25, 4000.0)));
        root->append(city.get());
        const SO<TTTMemoryController> controller = TTTMemoryController::getInstance();
        const double begin = NBX::NBXTime::now();
        canvas->redisplay(); // after which what is wanted is known
        canvas->redisplay();
        while (controller->redisplayRequired() && NBX::NBXTime::now() - begin < 120.0) {
            ZMT::CORE::Thread::sleep(0.001);
            canvas->redisplay();
        }
        EXPECT_FALSE(controller->redisplayRequired()) << view.name;
        root->clear();
        return canvas->snapshot();
    }

    ModelLikeness likenessOf(const SO<NBX::SceneThing> & trees, const SO<NBX::SceneThing> & sources,
                             const View & view) {
        const SO<NBX::Image> actual = picture(trees, view), expected = picture(sources, view);
        ModelLikeness likeness = compareModels(*actual, *expected, background());
        if (const char * kept = std::getenv("ZMT_KEEP_PICTURES"); kept && *kept) {
            const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
            const std::string stem = std::string(kept) + "/" + test + "." + view.name;
            writePng(*actual, stem + ".tree.png");
            writePng(*expected, stem + ".models.png");
            writePng(*likeness.picture, stem + ".likeness.png");
            std::cout << test << ' ' << view.name << ": " << likeness.similarity << ", silhouettes "
                      << 100.0 * likeness.silhouettes << " %\n";
        }
        return likeness;
    }
    /// Trees against models, the similarity at least `similarity`, and the silhouettes almost the same.
    void expectAlike(const SO<NBX::SceneThing> & trees, const SO<NBX::SceneThing> & sources,
                     const View & view, double similarity) {
        const ModelLikeness likeness = likenessOf(trees, sources, view);
        EXPECT_GE(likeness.similarity, similarity) << view.name;
        EXPECT_LE(likeness.silhouettes, s_mostSilhouettes) << view.name;
        EXPECT_GT(likeness.shown, 1000U) << view.name << " shows nothing";
    }

    const std::string folder = testing::TempDir() + "zmt_pictures_" + std::to_string(::getpid());
    SO<NBX::OffscreenCanvasGL> canvas{isFull() ? new NBX::OffscreenCanvasGL(1280, 720)
                                               : new NBX::OffscreenCanvasGL(640, 360)};
    SO<NBX::SceneThing> root{new NBX::SceneThing};
    RecordedReports reports;

private:
    static bool isFull() { return std::getenv("ZMT_FULL_PICTURES") != nullptr; }

    int builds_ = 0;
};
