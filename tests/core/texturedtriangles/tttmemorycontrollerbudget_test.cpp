// Flights over a tree whose textures do not fit: after each `update` what is decoded, on the card and under
// way keeps to the budget, and the picture has no hole.

#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

#include <nbx/engine/canvas.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/viewinfo.h>
#include <support/glfixture.h>
#include <zmt/core/misc/thread.h>

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "core/texturedtriangles/visibilitymanagergl.h"
#include "smalltree.h"

namespace ZMT::CORE {
namespace {

using NBX::Color;
using NBX::SO;
using Tree = TexturedTriangleTree;
using Controller = TTTMemoryController;

class TTTMemoryControllerBudgetTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        before_ = Controller::getMaxTextureMemory();
        camera_ = new NBX::Camera(eye_.get(), new NBX::Ortho(-2, 2, -2, 2, -1000, 10000));
        root->append(camera_.get());
    }
    void TearDown() override {
        Controller::setMaxTextureMemory(before_);
        GLFixture::TearDown();
    }

    /// What the nodes have, each texture once; counted here, and not by the controller.
    static std::uint64_t bytesInNodes(SmallTree & city) {
        std::set<const NBX::SharedObj *> seen{city.tree->getRootAtlas(0).get()};
        std::uint64_t bytes = 0;
        const auto count = [&](const NBX::SO<NBX::SharedObj> & object) {
            const auto texture = NBX::soCast<SmallTree::StreamTexture>(object);
            if (!texture || !seen.insert(texture.get()).second) return;
            bytes += texture->data() ? texture->data()->size() : 0;
            if (texture->isUploaded())
                bytes += SmallTree::StreamTexture::textureBytes(texture->width(), texture->height(),
                                                                texture->format());
        };
        for (unsigned level = 0; level <= 2; ++level)
            city.forLevel(level, [&](const SmallTree::Node & node) {
                count(node->content.texture(0));
                if (level == 2) count(node->content.originalTextures->get(0));
            });
        return bytes;
    }
    /// Draws, and gives the sharpness of the picture: the sum over 16 places, from 0 for the root's atlas to
    /// 3 for source textures. -1 where there is a hole.
    int draw() {
        canvas->redisplay();
        const SO<NBX::Image> image = canvas->snapshot();
        int sum = 0;
        for (int i = 0; i < 16; ++i) {
            const auto p = pixel(image, 8 + 16 * (i % 4), 8 + 16 * (i / 4));
            const bool isRed = p[0] > 128, isGreen = p[1] > 128, isBlue = p[2] > 128;
            if (!isRed && !isGreen && !isBlue) return -1;
            sum += isRed && isGreen ? 3 : isBlue ? 2 : isGreen ? 1 : 0;
        }
        return sum;
    }
    /// Comes down on the tree, goes along it and up again. The sharpest picture there was.
    int fly(SmallTree & city, int frames) {
        const Controller & controller = *Controller::getInstance();
        const std::uint64_t most = Controller::getMaxTextureMemory();
        int sharpest = -1;
        for (int i = 0; i < frames; ++i) {
            const double t = 2.0 * M_PI * i / frames;
            const double distance = 250.0 + 230.0 * std::cos(t), x = 2.0 + 1.5 * std::sin(3.0 * t);
            eye_->setFrom({x, 2.0, -distance});
            eye_->setTo({x, 2.0, 0.0});
            camera_->setProjection(new NBX::Ortho(-x, 4.0 - x, -2, 2, -1000, 10000)); // shows the whole tree
            int sharpness = draw();
            // Stays where it is nearest until no picture is asked for.
            for (int more = 0; i == frames / 2 && more < 300 && canvas->redisplayPending(); ++more) {
                Thread::sleep(0.001);
                sharpness = draw();
                EXPECT_LE(controller.textureMemory(), most);
            }
            EXPECT_GE(sharpness, 0) << "the picture has a hole in frame " << i;
            EXPECT_LE(controller.textureMemory(), most) << i;
            EXPECT_LE(bytesInNodes(city), most) << i;
            sharpest = std::max(sharpest, sharpness);
            if (i % 4 == 0) Thread::sleep(0.0005); // for the disk and the codec
        }
        return sharpest;
    }

    const SO<NBX::LookAt> eye_{new NBX::LookAt({2, 2, -150}, {2, 2, 0})};
    SO<NBX::Camera> camera_;

private:
    std::uint64_t before_ = 0;
};

TEST_F(TTTMemoryControllerBudgetTest, AFlightNeverExceedsItAndIsWhole) {
    for (const auto format : {Tree::TextureFormatRGBA8, Tree::TextureFormatJPEG}) {
        SCOPED_TRACE(format);
        // Room for all: 20 atlases and 16 source textures, and a read.
        std::uint64_t whole = 0;
        int before = 48;
        for (const double share : {1.0, 0.5, 0.2, 0.08, 0.0}) {
            SCOPED_TRACE(share);
            SmallTree city(2);
            city.writePagingFile({Color::green, Color::blue}, Color::white, format);
            root->append(city.tree.get());
            Controller::setMaxTextureMemory(share == 1.0 ? 1U << 20U : std::uint64_t(share * double(whole)));
            const int sharpest = fly(city, 150);
            if (share == 1.0) whole = bytesInNodes(city);
            if (share == 1.0) {
                EXPECT_EQ(sharpest, before) << "with room for all it is sharp at last";
            } else {
                EXPECT_LE(sharpest, before) << "quality falls with the memory";
            }
            if (share == 0.2 && format == Tree::TextureFormatRGBA8) { // a JPEG takes more on its way
                EXPECT_GT(sharpest, 0) << "what fits is used";
                EXPECT_LT(sharpest, 48);
            }
            if (share == 0.0) {
                EXPECT_EQ(sharpest, 0) << "the root's atlas is always there";
            }
            const auto resident = Controller::residentBytes(*city.tree);
            EXPECT_GT(resident.rootAtlases, 0U);
            EXPECT_GT(resident.meshes, 0U);
            before = sharpest;
            root->remove(city.tree.get());
        }
        EXPECT_GT(whole, 5000U);
    }
}

/// Views that do not change, of two trees at one place.
class TTTMemoryControllerSettlingTest : public TTTMemoryControllerBudgetTest {
protected:
    static constexpr int s_mostFrames = 5000;
    static constexpr double s_longestSettling = 5.0; ///< in seconds, behind which frames count in any case

    void SetUp() override {
        TTTMemoryControllerBudgetTest::SetUp();
        Controller::getInstance(); // its list keeps the budget that it is made with
        beforeBlocks_ = Controller::getMaxMemoryUsage();
        root->append(city.tree.get());
        root->append(other.tree.get());
    }
    void TearDown() override {
        Controller::setMaxMemoryUsage(beforeBlocks_);
        root->clear();
        TTTMemoryControllerBudgetTest::TearDown();
    }
    static std::uint64_t blockOf(const SmallTree::Node & node) { return node->content.blockSizes[0]; }
    /// Straight down on a window of the trees.
    void look(double x, double y, double distance, double halfWindow) {
        eye_->setFrom({x, y, -distance});
        eye_->setTo({x, y, 0.0});
        camera_->setProjection(
            new NBX::Ortho(-halfWindow, halfWindow, -halfWindow, halfWindow, -1000, 10000));
    }
    /// How many frames it took until no more was to come.
    int settle() {
        const Controller & controller = *Controller::getInstance();
        const double start = NBX::NBXTime::now();
        for (int frames = 1; frames < s_mostFrames;) {
            canvas->redisplay();
            if (!controller.redisplayRequired() && !canvas->redisplayPending()) return frames;
            // A read may take many frames where the machine is busy.
            const bool isLate = NBX::NBXTime::now() - start > s_longestSettling;
            if (controller.pendingReads() == 0 || isLate) ++frames;
            Thread::sleep(0.0002);
        }
        return s_mostFrames;
    }
    void expectSettled() {
        EXPECT_LT(settle(), s_mostFrames);
        const Controller & controller = *Controller::getInstance();
        const std::size_t loaded = controller.loadedTextures();
        for (int frame = 0; frame < 20; ++frame) {
            canvas->redisplay();
            EXPECT_EQ(controller.pendingReads(), 0U) << "frame " << frame;
            EXPECT_EQ(controller.loadedTextures(), loaded) << "frame " << frame;
            EXPECT_FALSE(controller.redisplayRequired()) << "frame " << frame;
        }
        EXPECT_LE(controller.textureMemory(), Controller::getMaxTextureMemory());
    }

    SmallTree city{3}, other{2};

private:
    int beforeBlocks_ = 0;
};

TEST_F(TTTMemoryControllerSettlingTest, EveryViewSettlesWhateverTheBudgets) {
    city.writePagingFile({Color::green, Color::blue, Color::blue}, Color::white);
    other.writePagingFile({Color::green, Color::blue}, Color::white);
    const std::uint64_t block = blockOf(city.node({0}));
    const struct {
        double x, y, distance, halfWindow;
    } views[] = {{2, 2, 300, 2}, {0.6, 0.6, 60, 0.3}, {3.2, 0.9, 150, 0.8}, {1.9, 2.1, 30, 1.2}};
    for (const bool isMemory : {false, true})
        for (const std::uint64_t blocks : {0, 3, 7, 13, 22, 45, 400}) {
            const std::uint64_t budget = blocks * block + block / 2;
            Controller::setMaxMemoryUsage(isMemory ? 300000000 : int(budget));
            Controller::setMaxTextureMemory(isMemory ? budget : std::uint64_t(1) << 30U);
            for (const auto & view : views) {
                SCOPED_TRACE(testing::Message()
                             << (isMemory ? "memory for " : "block bytes for ") << blocks << ", from "
                             << view.distance << " above " << view.x << " " << view.y);
                look(view.x, view.y, view.distance, view.halfWindow);
                expectSettled();
                if (blocks == 0) {
                    EXPECT_EQ(Controller::getInstance()->loadedTextures(), 0U);
                } else if (blocks == 400) {
                    EXPECT_GE(Controller::getInstance()->loadedTextures(), 8U);
                }
            }
        }
}

/// Of four children one is in view alone: all the same they come together, and stay.
TEST_F(TTTMemoryControllerSettlingTest, WhatIsOutOfViewIsKeptWithWhatItIsDrawnWith) {
    root->remove(city.tree.get());
    other.writePagingFile({Color::green, Color::blue}, Color::white);
    Controller::setMaxMemoryUsage(int(8 * blockOf(other.node({0}))));
    look(0.5, 0.5, 150, 0.3);
    expectSettled();
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_TRUE(other.node({i})->content.texture(0)) << i;
        EXPECT_TRUE(other.node({0, i})->content.texture(0)) << i;
    }
}

/// The source textures of a leaf are drawn all together. Where they do not fit, the leaf has its atlas, and
/// what is behind them has the room.
TEST_F(TTTMemoryControllerSettlingTest, SourceTexturesThatDoNotFitTogetherLeaveTheirRoom) {
    root->remove(city.tree.get());
    SmallTree town(1);
    town.writePagingFile({Color::green}, Color::white);
    root->remove(other.tree.get());
    root->append(town.tree.get());
    const auto setOriginals = [&](unsigned leaf, const std::vector<unsigned> & blocks) {
        RenderNode & content = town.node({leaf})->content;
        const auto mesh = content.originalGeometry[0];
        content.originalGeometry.assign(blocks.size(), mesh);
        content.originalTextures = new RenderNode::Textures(unsigned(blocks.size()));
        content.textureStates.assign(blocks.size(), false);
        std::vector<std::uint64_t> places, sizes;
        for (const unsigned of : blocks) {
            places.push_back(town.node({of})->content.originalTexturesBlockPositions[0]);
            sizes.push_back(town.node({of})->content.originalTexturesBlockSizes[0]);
        }
        content.originalTexturesBlockPositions = places;
        content.originalTexturesBlockSizes = sizes;
    };
    // What is seen of a leaf is shared out among its textures: the last leaf comes behind the first, one of
    // whose textures it has.
    setOriginals(3, {0, 0, 0});
    setOriginals(0, {0, 1});
    for (const unsigned leaf : {1U, 2U})
        town.node({leaf})->content.minDistance = 0.0;
    const std::uint64_t atlas = blockOf(town.node({0})),
                        original = town.node({3})->content.originalTexturesBlockSizes[0];
    look(2, 2, 50, 2);
    const auto loadedOf = [&](unsigned leaf) {
        const auto & all = town.node({leaf})->content.originalTextures->stl();
        return std::count_if(all.begin(), all.end(), [](const auto & texture) { return bool(texture); });
    };
    for (const int room : {0, 1, 3}) {
        SCOPED_TRACE(room);
        Controller::setMaxMemoryUsage(int(4 * atlas + unsigned(room) * original));
        expectSettled();
        for (unsigned leaf = 0; leaf < 4; ++leaf)
            EXPECT_TRUE(town.node({leaf})->content.texture(0)) << leaf;
        EXPECT_EQ(loadedOf(0), room == 3 ? 2 : 0);
        EXPECT_EQ(loadedOf(3), room >= 1 ? 3 : 0);
    }
    root->remove(town.tree.get());
}

/// What was refused in one view is asked for again in the next.
TEST_F(TTTMemoryControllerSettlingTest, AnotherViewHasTheRoomThatOneHad) {
    root->remove(city.tree.get());
    other.writePagingFile({Color::green, Color::blue}, Color::white);
    Controller::setMaxMemoryUsage(int(8 * blockOf(other.node({0}))));
    for (int round = 0; round < 2; ++round)
        for (unsigned corner = 0; corner < 4; ++corner) {
            SCOPED_TRACE(testing::Message() << round << ", " << corner);
            look(2, 2, 150, 2);
            expectSettled();
            look(0.5 + 3 * (corner & 1U), 0.5 + 3 * (corner >> 1U), 150, 0.3);
            expectSettled();
            for (unsigned i = 0; i < 4; ++i)
                EXPECT_TRUE(other.node({corner, i})->content.texture(0)) << i;
        }
}

TEST_F(TTTMemoryControllerSettlingTest, ChildrenBeyondTheFarLimitAreNotWaitedFor) {
    root->remove(city.tree.get());
    other.writePagingFile({Color::green, Color::blue}, Color::white);
    other.tree->enableMaxDistance(1.5);
    look(0.5, 0.5, 1, 2);
    expectSettled();
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_TRUE(other.node({0, i})->content.texture(0)) << i;
        EXPECT_EQ(bool(other.node({i})->content.texture(0)), i == 0) << i;
    }
}

/// A controller of its own, and wishes that are made up.
class TTTMemoryControllerGroupTest : public TTTMemoryControllerSettlingTest {
protected:
    void SetUp() override {
        TTTMemoryControllerSettlingTest::SetUp();
        root->remove(city.tree.get());
        root->remove(other.tree.get());
        other.writePagingFile({Color::green, Color::blue}, Color::white);
        Controller::setMaxMemoryUsage(int(4 * blockOf(other.node({0}))));
        own_ = new Controller();
        own_->registerTree(other.tree);
        own_->keepTogether(*other.tree);
    }
    void TearDown() override {
        own_->notifyTreeDestruction(other.tree.get());
        own_ = nullptr;
        TTTMemoryControllerSettlingTest::TearDown();
    }
    /// Reports the children of a node, of which the last one is seen, and the others are not.
    void want(const std::vector<unsigned> & path, unsigned seen) {
        for (unsigned i = 0; i < 4; ++i) {
            std::vector<unsigned> child = path;
            child.push_back(i);
            const SmallTree::Node node = other.node(child);
            manager_->estimate(visibilityKey(node), i == 3 ? seen : 0);
            own_->reportNeededNode(other.tree, node, 10.0, false, true, manager_);
        }
    }
    std::size_t loadedBelow(const std::vector<unsigned> & path) const {
        std::size_t count = 0;
        for (unsigned i = 0; i < 4; ++i) {
            std::vector<unsigned> child = path;
            child.push_back(i);
            count += other.node(child)->content.texture(0) ? 1 : 0;
        }
        return count;
    }
    void frame(const std::function<void()> & wishes) {
        own_->update(nullptr, nullptr);
        manager_->beginFrame();
        wishes();
        manager_->update();
        Thread::sleep(0.001);
    }

    SO<Controller> own_;
    const SO<VisibilityManager> manager_{new VisibilityManager()};
};

TEST_F(TTTMemoryControllerGroupTest, NothingComesBeforeWhatItStandsOn) {
    const auto wishes = [this] {
        want({}, 10);
        want({0}, 100);
    };
    for (int i = 0; i < 50; ++i)
        frame(wishes);
    EXPECT_EQ(loadedBelow({}), 4U);
    EXPECT_EQ(loadedBelow({0}), 0U);
}

TEST_F(TTTMemoryControllerGroupTest, ABlockOfWhatWasRefusedCountsForTheNext) {
    const RenderNode & shared = other.node({0, 0})->content;
    for (unsigned i = 0; i < 4; ++i)
        other.node({1, i})->content.blockPositions = shared.blockPositions;
    for (const int blocks : {0, 1}) {
        Controller::setMaxMemoryUsage(int(double(blockOf(other.node({0}))) * (blocks + 0.5)));
        for (int i = 0; i < 30; ++i)
            frame([this] {
                want({0}, 100);
                want({1}, 50);
            });
        EXPECT_EQ(loadedBelow({0}), 0U);
        EXPECT_EQ(loadedBelow({1}), blocks == 0 ? 0U : 4U);
    }
}

/// Each of two counts for less once it is there. The tree's upper atlases are not asked for: room is for one.
TEST_F(TTTMemoryControllerGroupTest, TwoDoNotTakeTurns) {
    const auto wishes = [this] {
        const bool isFirstHere = loadedBelow({0}) == 4;
        want({0}, isFirstHere ? 10 : 100);
        want({1}, isFirstHere ? 100 : 50);
    };
    int frames = 0;
    do
        frame(wishes);
    while (++frames < s_mostFrames && (frames < 3 || own_->redisplayRequired()));
    EXPECT_LT(frames, s_mostFrames);
    EXPECT_EQ(loadedBelow({0}) + loadedBelow({1}), 4U);
    const std::size_t first = loadedBelow({0});
    // Whatever they count for from now on.
    for (const unsigned seen : {0U, 1000U})
        for (int i = 0; i < 20; ++i) {
            frame([&] {
                want({0}, seen);
                want({1}, 500);
            });
            EXPECT_EQ(own_->pendingReads(), 0U);
            EXPECT_EQ(loadedBelow({0}), first);
            EXPECT_FALSE(own_->redisplayRequired());
        }
}

TEST_F(TTTMemoryControllerGroupTest, WhatHadNoRoomStaysAwayOnceTheViewHasSettled) {
    const auto settleWith = [this](unsigned first, unsigned second) {
        int frames = 0;
        do
            frame([&] {
                want({0}, first);
                want({1}, second);
            });
        while (++frames < s_mostFrames && (frames < 3 || own_->redisplayRequired()));
        EXPECT_LT(frames, s_mostFrames);
    };
    settleWith(100, 50);
    settleWith(50, 100);
    EXPECT_EQ(loadedBelow({0}), 4U);
    EXPECT_EQ(loadedBelow({1}), 0U);
    // Another budget is another question.
    Controller::setMaxMemoryUsage(Controller::getMaxMemoryUsage() + 1);
    settleWith(50, 100);
    EXPECT_EQ(loadedBelow({0}), 0U);
    EXPECT_EQ(loadedBelow({1}), 4U);
}

/// Such as where a layer is switched off: the view is the same.
TEST_F(TTTMemoryControllerGroupTest, WhereLessIsWantedItComesAfterAll) {
    unsigned others = 4;
    const auto settle = [&] {
        int frames = 0;
        do
            frame([&] {
                if (others > 0) want({0}, 100);
                want({1}, 50);
            });
        while (++frames < s_mostFrames && (frames < 3 || own_->redisplayRequired()));
        EXPECT_LT(frames, s_mostFrames);
    };
    settle();
    settle();
    EXPECT_EQ(loadedBelow({0}), 4U);
    EXPECT_EQ(loadedBelow({1}), 0U);
    others = 0;
    settle();
    EXPECT_EQ(loadedBelow({1}), 4U);
    // What is wanted more than before does not come by turns.
    others = 4;
    settle();
    const std::size_t here = loadedBelow({0});
    for (int i = 0; i < 20; ++i) {
        settle();
        EXPECT_EQ(loadedBelow({0}), here);
    }
}

} // namespace
} // namespace ZMT::CORE
