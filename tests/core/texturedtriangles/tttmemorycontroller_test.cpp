// What the controller does with files that the test moves on, and a clock that it steps.

#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

#include <algorithm>
#include <functional>
#include <random>
#include <thread>

#include <nbx/engine/canvas.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/view/viewinfo.h>
#include <support/damagedfiles.h>
#include <support/glfixture.h>
#include <zmt/core/misc/thread.h>

#include "core/texturedtriangles/visibilitymanagergl.h"
#include "testcity.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Controller = TTTMemoryController;
using StreamTexture = Controller::StreamTexture;
using NodePointer = RenderTree::NodePointer;
using Tree = TexturedTriangleTree;

class TTTMemoryControllerTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        budgetBefore_ = Controller::getMaxMemoryUsage();
        memoryBefore_ = Controller::getMaxTextureMemory();
        makeController();
    }
    void TearDown() override {
        forget();
        controller = nullptr;
        manager = nullptr;
        Controller::setMaxMemoryUsage(budgetBefore_);
        Controller::setMaxTextureMemory(memoryBefore_);
        GLFixture::TearDown();
    }

    /// With the budget of block bytes as it is now.
    void makeController() {
        controller = SO<TestController>(new TestController);
        controller->setClock([this] { return time += tick; });
    }
    /// Opens a city.
    TestCity & open(const TestCity::Options & options) {
        cities.push_back(std::make_unique<TestCity>(options));
        TestCity & city = *cities.back();
        files.push_back(city.newFile());
        controller->files[options.name] = files.back();
        controller->registerTree(city.tree);
        return city;
    }
    void forget() {
        for (const auto & city : cities)
            if (controller) controller->notifyTreeDestruction(city->tree.get());
        cities.clear();
        files.clear();
        if (controller) controller->files.clear();
    }

    void want(const TestCity & city, const NodePointer & node, double distance = 10.0, bool urgent = true) {
        controller->reportNeededNode(city.tree, node, distance, false, urgent, manager);
    }
    void wantOriginals(const TestCity & city, const NodePointer & node, double distance = 10.0) {
        controller->reportNeededNode(city.tree, node, distance, true, true, manager);
    }
    void update() { controller->update(engine, nullptr); }
    /// Two frames with the same wishes: the second one acts on them.
    void frames(const std::function<void()> & wishes, int count = 2) {
        for (int i = 0; i < count; ++i) {
            update();
            wishes();
        }
    }
    /// Until nothing more comes; everything that is asked for is there at once.
    void settle(const std::function<void()> & wishes) {
        const double begin = NBX::NBXTime::now();
        do {
            update();
            wishes();
            for (const auto & file : files)
                file->setStates(AsyncFile::RS_Ready);
            if (NBX::NBXTime::now() - begin > 30.0) FAIL() << "does not settle";
            if (controller->pendingReads() > 0) Thread::sleep(0.0);
        } while (controller->redisplayRequired());
    }
    static bool isLoaded(const NodePointer & node) { return bool(node->content.texture(0)); }
    static bool isOnCard(const NodePointer & node) {
        const auto texture = NBX::soCast<StreamTexture>(node->content.texture(0));
        return texture && texture->isUploaded();
    }

    SO<TestController> controller;
    SO<VisibilityManager> manager{new VisibilityManager};
    std::vector<std::unique_ptr<TestCity>> cities;
    std::vector<SO<HeldFile>> files;
    double time = 1000.0, tick = 0.0;

private:
    int budgetBefore_ = 0;
    std::uint64_t memoryBefore_ = 0;
};

TEST_F(TTTMemoryControllerTest, ThereIsOneForTheProcess) {
    EXPECT_TRUE(Controller::getInstance());
    EXPECT_EQ(Controller::getInstance(), Controller::getInstance());
    EXPECT_EQ(Controller::getMaxMemoryUsage(), 300000000);
    EXPECT_EQ(Controller::getMaxTextureMemory(), 1U << 30U);
    EXPECT_EQ(Controller::getInstance()->loadedNodes()->budget(), 300000000);
}

TEST_F(TTTMemoryControllerTest, AFileIsOpenedOnceForEachLayer) {
    TestCity & city = open({});
    controller->registerTree(city.tree);
    EXPECT_EQ(controller->opened, 1);
    controller->files[L"light"] = SO<HeldFile>(new HeldFile(city.paging));
    city.tree->registerTextureLayer(1, L"light", nullptr, Tree::TextureFormatLuminance8);
    controller->registerTree(city.tree);
    EXPECT_EQ(controller->opened, 2);
    controller->files[L"moved"] = SO<HeldFile>(new HeldFile(city.paging));
    city.tree->changePagingFileName(L"moved", 0);
    controller->registerTree(city.tree);
    controller->registerTree(city.tree);
    EXPECT_EQ(controller->opened, 3);
}

TEST_F(TTTMemoryControllerTest, AnotherPagingFileTakesThePlaceOfWhatIsReadAndLoaded) {
    const TestCity & city = open({});
    city.tree->registerTextureLayer(1, L"light", nullptr, Tree::TextureFormatRGBA8);
    controller->files[L"light"] = city.newFile();
    files.push_back(NBX::soCast<HeldFile>(controller->files[L"light"]));
    for (const NodePointer & node : city.all()) {
        node->content.blockPositions.push_back(node->content.blockPositions[0]);
        node->content.blockSizes.push_back(node->content.blockSizes[0]);
    }
    const auto wishes = [&] {
        controller->registerTree(city.tree);
        want(city, city.node(0));
        want(city, city.node(1));
        want(city, city.node(2));
    };
    frames(wishes);
    files[0]->setState(city.node(0)->content.blockPositions[0], AsyncFile::RS_Ready);
    files[0]->setState(city.node(1)->content.blockPositions[0], AsyncFile::RS_Failed);
    files[1]->setStates(AsyncFile::RS_Ready);
    frames(wishes, 1);
    const auto old = city.node(0)->content.texture(0), light = city.node(0)->content.texture(1);
    ASSERT_TRUE(old);
    ASSERT_EQ(controller->pendingReads(), 1U);
    ASSERT_EQ(controller->failures().size(), 1U);
    reports.clear();

    const SO<HeldFile> first = files[0];
    files[0] = city.newFile();
    controller->files[L"moved"] = files[0];
    city.tree->changePagingFileName(L"moved", 0);
    canvas->redisplay();
    controller->registerTree(city.tree);
    EXPECT_EQ(controller->pendingReads(), 0U);
    EXPECT_TRUE(first->known.empty());
    EXPECT_TRUE(controller->failures().empty());
    EXPECT_FALSE(isLoaded(city.node(0)));
    EXPECT_EQ(controller->loadedTextures(), 3U) << "those of the other layer";
    EXPECT_TRUE(canvas->redisplayPending());
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 3U);
    EXPECT_EQ(files[1]->asked, 3U) << "the other layer stays";
    EXPECT_NE(city.node(0)->content.texture(0), old);
    EXPECT_EQ(city.node(0)->content.texture(1), light);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_TRUE(isOnCard(city.node(i))) << i;
}

TEST_F(TTTMemoryControllerTest, AFileThatIsMissingIsToldOnceAndOpenedByTryingAgain) {
    cities.push_back(std::make_unique<TestCity>(TestCity::Options()));
    const TestCity & city = *cities.back();
    const auto wishes = [&] {
        controller->registerTree(city.tree);
        want(city, city.node(0));
    };
    frames(wishes, 5);
    EXPECT_EQ(controller->opened, 1);
    EXPECT_EQ(reports.count(2, L"false", L"failed to open streaming file: city"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_FALSE(isLoaded(city.node(0)));
    EXPECT_FALSE(controller->redisplayRequired());
    ASSERT_EQ(controller->failures().size(), 1U);
    EXPECT_EQ(controller->failures()[0].file, L"city");
    EXPECT_EQ(controller->failures()[0].bytes, 0U);

    controller->tryAgain();
    EXPECT_EQ(reports.size(), 2U) << "it is still missing";
    files.push_back(city.newFile());
    controller->files[L"city"] = files.back();
    canvas->redisplay();
    controller->tryAgain();
    EXPECT_TRUE(canvas->redisplayPending());
    settle(wishes);
    EXPECT_TRUE(isOnCard(city.node(0)));
    EXPECT_TRUE(controller->failures().empty());
    EXPECT_EQ(reports.size(), 2U) << reports;
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, AMissingFileOnADiskIsOneReport) {
    const SO<Controller> real(new Controller);
    TestCity::Options options;
    options.name = L"/nowhere/paging.opaque";
    const TestCity city(options);
    real->registerTree(city.tree);
    EXPECT_EQ(reports.count(2, L"false", L"failed to open streaming file: /nowhere/paging.opaque"), 1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, ATextureIsNeededReadLoadedAndOnTheCard) {
    const TestCity & city = open({});
    const auto wishes = [&] { want(city, city.node(2)); };
    frames(wishes);
    ASSERT_EQ(files[0]->known.size(), 1U);
    EXPECT_EQ(files[0]->known[0]->offset(), city.node(2)->content.blockPositions[0]);
    EXPECT_EQ(controller->pendingReads(), 1U);
    EXPECT_TRUE(controller->redisplayRequired());
    files[0]->setStates(AsyncFile::RS_Processing);
    frames(wishes, 3);
    EXPECT_EQ(files[0]->asked, 1U) << "it is not asked for twice";
    EXPECT_FALSE(isLoaded(city.node(2)));
    EXPECT_TRUE(controller->redisplayRequired());
    files[0]->setStates(AsyncFile::RS_Ready);
    update();
    EXPECT_TRUE(isOnCard(city.node(2)));
    EXPECT_TRUE(files[0]->known.empty());
    EXPECT_TRUE(controller->redisplayRequired()) << "the picture that has it is to be drawn";
    wishes();
    frames(wishes, 2);
    EXPECT_FALSE(controller->redisplayRequired());
    EXPECT_EQ(files[0]->asked, 1U);
    EXPECT_FALSE(isLoaded(city.node(1)));
}

TEST_F(TTTMemoryControllerTest, WhatIsNotUrgentWaitsForTheCardUntilItIs) {
    const TestCity & city = open({});
    bool isUrgent = false;
    const auto wishes = [&] { want(city, city.node(2), 10.0, isUrgent); };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Ready);
    frames(wishes, 2);
    EXPECT_TRUE(isLoaded(city.node(2)));
    EXPECT_FALSE(isOnCard(city.node(2)));
    EXPECT_EQ(controller->waitingUploads(), 1U);
    EXPECT_FALSE(controller->redisplayRequired()) << "it would wait for ever";
    isUrgent = true;
    frames(wishes, 2);
    EXPECT_TRUE(isOnCard(city.node(2)));
    EXPECT_EQ(controller->waitingUploads(), 0U);
}

TEST_F(TTTMemoryControllerTest, ANewWishPostsARedisplayAndAnOldOneDoesNot) {
    const TestCity & city = open({});
    const auto wishes = [&] { want(city, city.node(0)); };
    update();
    EXPECT_FALSE(controller->redisplayRequired());
    canvas->redisplay();
    EXPECT_FALSE(canvas->redisplayPending());
    wishes();
    EXPECT_TRUE(controller->redisplayRequired());
    EXPECT_TRUE(canvas->redisplayPending());
    settle(wishes);
    canvas->redisplay();
    frames(wishes, 3);
    EXPECT_FALSE(controller->redisplayRequired());
    EXPECT_FALSE(canvas->redisplayPending());
    EXPECT_EQ(files[0]->asked, 1U);
}

TEST_F(TTTMemoryControllerTest, SourceTexturesComeToTheirLeavesWithTheirStates) {
    TestCity::Options options;
    options.originals = 3;
    options.originalWidth = 16;
    const TestCity & city = open(options);
    const auto wishes = [&] { wantOriginals(city, city.node(1)); };
    settle(wishes);
    RenderNode & leaf = city.node(1)->content;
    EXPECT_TRUE(leaf.originalTexturesUploaded());
    const auto texture = NBX::soCast<StreamTexture>(leaf.originalTextures->get(2));
    ASSERT_TRUE(texture);
    EXPECT_EQ(texture->width(), 16);
    EXPECT_EQ(texture->height(), 8);
    EXPECT_FALSE(isLoaded(city.node(1))) << "only the source textures were wanted";
    EXPECT_FALSE(city.node(0)->content.originalTexturesLoaded());
}

TEST_F(TTTMemoryControllerTest, ABlockThatLeavesShareIsReadOnce) {
    TestCity::Options options;
    options.originals = 1;
    const TestCity & city = open(options);
    for (unsigned i = 1; i < 3; ++i)
        city.node(i)->content.originalTexturesBlockPositions =
            city.node(0)->content.originalTexturesBlockPositions;
    unsigned count = 2;
    const auto wishes = [&] {
        for (unsigned i = 0; i < count; ++i)
            wantOriginals(city, city.node(i), 10.0 + i);
    };
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 1U);
    EXPECT_TRUE(city.node(0)->content.originalTexturesUploaded());
    EXPECT_TRUE(city.node(1)->content.originalTexturesUploaded());
    const auto shared = city.node(0)->content.originalTextures->get(0);
    EXPECT_EQ(shared, city.node(1)->content.originalTextures->get(0));
    count = 3;
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 1U) << "it is in memory already";
    EXPECT_EQ(shared, city.node(2)->content.originalTextures->get(0));
    EXPECT_TRUE(city.node(2)->content.originalTexturesUploaded());
    EXPECT_EQ(controller->blockBytes(), city.node(0)->content.originalTexturesBlockSizes[0]);
}

TEST_F(TTTMemoryControllerTest, WhatIsMissingForSourceTexturesIsReported) {
    TestCity::Options options;
    options.originals = 1;
    const TestCity & city = open(options);
    const auto wishes = [&] { wantOriginals(city, city.node(1)); };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Ready);
    const auto array = city.node(1)->content.originalTextures;
    city.node(1)->content.originalTextures = nullptr;
    update();
    EXPECT_EQ(reports.count(0,
                            L"ref.node->content.originalTextures!=0 && "
                            L"ref.node->content.originalTextures->size()>ref.textureNumber",
                            L"texture array missing or texture number out of range"),
              1U)
        << reports;
    wishes();
    EXPECT_EQ(reports.count(0, L"node->content.originalTextures!=0", L"texture array must exist"), 1U)
        << reports;
    city.node(1)->content.originalTextures = array;
    city.node(1)->content.textureStates.clear();
    settle(wishes);
    EXPECT_EQ(reports.count(0, L"ref.node->content.textureStates.size()>ref.textureNumber",
                            L"texture states array too small:0"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 3U) << reports;
    reports.clear();
    city.node(2)->content.originalTexturesBlockSizes.clear();
    const auto others = [&] { wantOriginals(city, city.node(2)); };
    frames(others, 5);
    EXPECT_EQ(reports.count(0, L"node->content.originalTexturesBlockSizes.size()>ref.textureNumber",
                            L"invalid texture number or incomplete block size array"),
              1U)
        << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    controller->reportNeededNode(city.tree, NodePointer(), 0.0, false, true, manager);
    EXPECT_EQ(reports.count(2, L"false", L"invalid node pointer"), 1U) << reports;
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, ATextureWhoseLeafLostItsArrayOnTheWayToTheCardIsTold) {
    TestCity::Options options;
    options.originals = 1;
    const TestCity & city = open(options);
    const auto wishes = [&] { wantOriginals(city, city.node(1)); };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Ready);
    controller->update(nullptr, nullptr); // nothing can go to the card
    wishes();
    const auto array = city.node(1)->content.originalTextures;
    EXPECT_TRUE(array->get(0));
    wishes();
    city.node(1)->content.originalTextures = nullptr;
    update();
    EXPECT_GE(reports.count(2, L"false", L"texture is missing"), 1U) << reports;
    reports.clear();
    city.node(1)->content.originalTextures = array;
}

TEST_F(TTTMemoryControllerTest, AtMostEightReadsAreUnderWay) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity &first = open(options), &second = [&]() -> const TestCity & {
        options.name = L"other";
        return open(options);
    }();
    const auto wishes = [&] {
        for (const TestCity * city : {&first, &second})
            for (const NodePointer & node : city->all())
                want(*city, node);
    };
    frames(wishes);
    EXPECT_EQ(files[0]->known.size() + files[1]->known.size(), 8U);
    frames(wishes, 3);
    EXPECT_EQ(files[0]->asked + files[1]->asked, 8U);
    files[0]->setStates(AsyncFile::RS_Ready);
    const std::size_t ready = files[0]->known.size();
    frames(wishes, 1);
    EXPECT_EQ(files[0]->asked + files[1]->asked, 8U + ready);
    EXPECT_EQ(files[0]->known.size() + files[1]->known.size(), 8U);
}

TEST_F(TTTMemoryControllerTest, NearNodesAreReadFirstAndPrioritiesFollowPixelsAndDistance) {
    const TestCity & city = open({});
    manager->beginFrame();
    manager->estimate(visibilityKey(city.node(3)), 7);
    const auto wishes = [&] {
        want(city, city.node(0), 40.0);
        want(city, city.node(1), 10.0);
        want(city, city.node(2), 20.0);
        want(city, city.node(3), 30.0);
    };
    frames(wishes);
    ASSERT_EQ(files[0]->known.size(), 4U);
    const unsigned order[] = {3, 1, 2, 0};
    const double priorities[] = {7 + 1 - 30.0 / 40.0, 1 - 10.0 / 40.0, 1 - 20.0 / 40.0, 0.0};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(files[0]->known[i]->offset(), city.node(order[i])->content.blockPositions[0]) << i;
        EXPECT_DOUBLE_EQ(files[0]->known[i]->priority(), priorities[i]) << i;
    }
}

TEST_F(TTTMemoryControllerTest, ALastDistanceOfZeroLeavesThePixels) {
    const TestCity & city = open({});
    frames([&] { want(city, city.node(0), 0.0); });
    ASSERT_EQ(files[0]->known.size(), 1U);
    EXPECT_EQ(files[0]->known[0]->priority(), 1.0);
    manager->beginFrame();
    manager->estimate(visibilityKey(city.node(1)), 5);
    frames([&] {
        want(city, city.node(1), 30.0);
        want(city, city.node(2), 0.0);
    });
    ASSERT_EQ(files[0]->known.size(), 2U);
    EXPECT_EQ(files[0]->known[0]->priority(), 6.0);
}

TEST_F(TTTMemoryControllerTest, EnabledLayersAreNeededAndTheFirstKnownOneEndsIt) {
    const TestCity & city = open({});
    city.tree->registerTextureLayer(1, L"light", nullptr, Tree::TextureFormatRGBA8);
    controller->files[L"light"] = city.newFile();
    controller->registerTree(city.tree);
    for (const NodePointer & node : city.all()) {
        node->content.blockPositions.push_back(node->content.blockPositions[0]);
        node->content.blockSizes.push_back(node->content.blockSizes[0]);
    }
    files.push_back(NBX::soCast<HeldFile>(controller->files[L"light"]));
    const auto wishes = [&] { want(city, city.node(0)); };
    settle(wishes);
    EXPECT_TRUE(city.node(0)->content.texture(0));
    EXPECT_TRUE(city.node(0)->content.texture(1));
    EXPECT_NE(city.node(0)->content.texture(0), city.node(0)->content.texture(1));
    city.tree->setLayerEnabled(1, false);
    settle([&] { want(city, city.node(1)); });
    EXPECT_TRUE(city.node(1)->content.texture(0));
    EXPECT_FALSE(city.node(1)->content.texture(1));
    settle([&] {
        want(city, city.node(2));
        city.tree->setLayerEnabled(1, true);
        want(city, city.node(2)); // ends at the first layer, which is needed already
        city.tree->setLayerEnabled(1, false);
    });
    EXPECT_FALSE(city.node(2)->content.texture(1));
}

TEST_F(TTTMemoryControllerTest, WhatNobodyWantsAnyMoreIsDropped) {
    const TestCity & city = open({});
    frames([&] {
        want(city, city.node(0));
        want(city, city.node(1));
    });
    ASSERT_EQ(files[0]->known.size(), 2U);
    files[0]->setState(city.node(0)->content.blockPositions[0], AsyncFile::RS_Ready);
    const auto others = [&] { want(city, city.node(2)); };
    update();
    others();
    EXPECT_TRUE(isLoaded(city.node(0))) << "it was wanted in the last frame";
    update();
    others();
    EXPECT_FALSE(files[0]->find(city.node(1)->content.blockPositions[0])) << "it had not begun";
    frames([&] { want(city, city.node(3)); }, 1);
    files[0]->setStates(AsyncFile::RS_Processing); // nodes 2 and 3
    frames([&] { want(city, city.node(3)); }, 2);
    EXPECT_FALSE(isLoaded(city.node(2)));
    files[0]->setStates(AsyncFile::RS_Ready);
    frames([&] { want(city, city.node(3)); }, 1);
    EXPECT_TRUE(isLoaded(city.node(3)));
    EXPECT_FALSE(isLoaded(city.node(2))) << "it came, and nobody wants it";
    EXPECT_TRUE(files[0]->known.empty());
}

TEST_F(TTTMemoryControllerTest, ResultsAreTakenForAFiftiethOfASecond) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & city = open(options);
    const auto wishes = [&] {
        for (const NodePointer & node : city.all())
            want(city, node);
    };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Ready);
    const auto before = controller->loadedTextures();
    tick = 0.007; // three looks at the clock are 0.021 s
    update();
    EXPECT_EQ(controller->loadedTextures() - before, 3U);
    tick = 0.0;
    wishes();
    files[0]->setStates(AsyncFile::RS_Ready);
    update();
    EXPECT_EQ(controller->loadedTextures() - before, 3U + 8U) << "the other five, and three new ones";
}

TEST_F(TTTMemoryControllerTest, UploadsEndWithTheirTimeAndTheirNumber) {
    TestCity::Options options;
    options.levels = 2;
    options.originals = 8;
    options.atlasSize = 4;
    options.originalWidth = options.originalHeight = 1;
    const TestCity & city = open(options);
    const auto wishes = [&] {
        for (const NodePointer & node : city.all()) {
            want(city, node);
            if (node->content.originalTextures) wantOriginals(city, node);
        }
    };
    // Everything is loaded, and nothing goes to the card.
    for (int i = 0; i < 40; ++i) {
        controller->update(nullptr, nullptr);
        wishes();
        files[0]->setStates(AsyncFile::RS_Ready);
    }
    const std::size_t all = 20 + 16 * 8;
    ASSERT_EQ(controller->loadedTextures(), all);
    ASSERT_EQ(controller->waitingUploads(), all);
    EXPECT_FALSE(city.leaf(0, 0)->content.originalTexturesUploaded());
    update();
    EXPECT_EQ(controller->waitingUploads(), all - 100);
    EXPECT_TRUE(controller->redisplayRequired());
    wishes();
    tick = 0.006; // one look at the begin, one for each texture
    update();
    EXPECT_EQ(controller->waitingUploads(), all - 103);
    tick = 0.0;
    settle(wishes);
    EXPECT_EQ(controller->waitingUploads(), 0U);
}

TEST_F(TTTMemoryControllerTest, ABudgetBelowOneBlockKeepsNothing) {
    Controller::setMaxMemoryUsage(100);
    makeController();
    const TestCity & city = open({});
    const auto wishes = [&] { want(city, city.node(0)); };
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 0U);
    EXPECT_EQ(controller->loadedTextures(), 0U);
    EXPECT_FALSE(controller->redisplayRequired());
}

TEST_F(TTTMemoryControllerTest, TheBudgetCutsWhatIsNeededAtOnceAndTheListKeepsItsOwn) {
    TestCity::Options options;
    const int block = int(TestCity(options).node(0)->content.blockSizes[0]);
    Controller::setMaxMemoryUsage(3 * block);
    makeController();
    const TestCity & city = open(options);
    const auto wishes = [&] {
        for (unsigned i = 0; i < 4; ++i)
            want(city, city.node(i), 10.0 + i);
    };
    settle(wishes);
    EXPECT_EQ(controller->loadedTextures(), 3U);
    EXPECT_FALSE(isLoaded(city.node(3)));
    EXPECT_EQ(files[0]->asked, 3U);
    Controller::setMaxMemoryUsage(4 * block);
    EXPECT_EQ(controller->loadedNodes()->budget(), 3 * block);
    settle(wishes);
    EXPECT_EQ(controller->loadedTextures(), 3U) << "the list of what is loaded has the old one";
    EXPECT_EQ(files[0]->asked, 3U) << "and what it cannot hold is not read";
    Controller::setMaxMemoryUsage(block);
    const auto others = [&] {
        for (unsigned i = 4; i-- > 0;)
            want(city, city.node(i), 10.0 - i);
    };
    settle(others);
    EXPECT_EQ(files[0]->asked, 4U) << "the list of what is needed has the new one";
    EXPECT_TRUE(isOnCard(city.node(3)));
    Controller::setMaxMemoryUsage(3 * block);
    frames(wishes);
    ASSERT_EQ(files[0]->known.size(), 1U);
    Controller::setMaxMemoryUsage(block - 1);
    frames(wishes, 1);
    EXPECT_TRUE(files[0]->known.empty());
}

TEST_F(TTTMemoryControllerTest, MemoryIsNeverAboveItsBudget) {
    for (const auto format :
         {Tree::TextureFormatRGBA8, Tree::TextureFormatLuminance8, Tree::TextureFormatRGBA5551,
          Tree::TextureFormatDXT1, Tree::TextureFormatJPEG}) {
        SCOPED_TRACE(format);
        forget();
        makeController();
        TestCity::Options options;
        options.format = format;
        options.levels = 2;
        options.originals = 2;
        options.atlasSize = 32;
        options.originalWidth = 64;
        options.originalHeight = 16;
        const TestCity & city = open(options);
        Controller::setMaxTextureMemory(~std::uint64_t(0));
        const auto all = city.all();
        const auto wantAll = [&] {
            for (const NodePointer & node : all) {
                want(city, node);
                if (node->content.originalTextures) wantOriginals(city, node);
            }
        };
        settle(wantAll);
        const std::uint64_t whole = controller->textureMemory();
        EXPECT_EQ(controller->loadedTextures(), 20U + 32U);
        std::mt19937 random(5);
        std::size_t most = 0;
        for (int frame = 0; frame < 600; ++frame) {
            if (frame % 100 == 0) Controller::setMaxTextureMemory(whole * (6 - frame / 100) / 8);
            update();
            ASSERT_LE(controller->textureMemory(), Controller::getMaxTextureMemory()) << frame;
            most = std::max(most, controller->loadedTextures());
            for (std::size_t i = 0; i < all.size(); ++i) {
                // The flight goes round.
                const double distance = double((i + std::size_t(frame) / 20) % all.size());
                if (distance > 12.0) continue;
                want(city, all[i], distance);
                if (all[i]->content.originalTextures) wantOriginals(city, all[i], distance);
            }
            for (const auto & request : files[0]->known)
                if (random() % 3 == 0) files[0]->setState(request->offset(), AsyncFile::RS_Ready);
        }
        EXPECT_GT(most, 5U);
    }
}

TEST_F(TTTMemoryControllerTest, WithTooLittleMemoryTheNearestComeAndTheViewSettles) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & city = open(options);
    const std::uint64_t block = city.node(0)->content.blockSizes[0];
    Controller::setMaxTextureMemory(6 * block); // five on the card, and room for one under way
    const auto all = city.all();
    const auto wishes = [&] {
        for (std::size_t i = 0; i < all.size(); ++i)
            want(city, all[i], 10.0 + double(i));
    };
    settle(wishes);
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_EQ(isOnCard(all[i]), i < 5) << i;
    // What is not wanted any more makes room.
    settle([&] { want(city, all[15], 5.0); });
    EXPECT_TRUE(isOnCard(all[15]));
    // Room for one and a read of it is the least that is of use.
    Controller::setMaxTextureMemory(2 * block - 1);
    settle(wishes);
    EXPECT_LE(controller->textureMemory(), 2 * block - 1);
    EXPECT_FALSE(controller->redisplayRequired());
}

TEST_F(TTTMemoryControllerTest, BehindTheBudgetNothingSmallerTakesItsPlace) {
    TestCity::Options options;
    options.originals = 1;
    options.originalWidth = options.originalHeight = 2;
    const TestCity & city = open(options);
    const RenderNode & node = city.node(0)->content;
    Controller::setMaxMemoryUsage(int(node.blockSizes[0] + node.originalTexturesBlockSizes[0]));
    settle([&] {
        want(city, city.node(0), 1.0);
        want(city, city.node(1), 2.0);
        wantOriginals(city, city.node(2), 3.0);
    });
    EXPECT_TRUE(isLoaded(city.node(0)));
    EXPECT_FALSE(isLoaded(city.node(1)));
    EXPECT_FALSE(city.node(2)->content.originalTextures->get(0));
}

TEST_F(TTTMemoryControllerTest, WhatNeverFitsIsPassedOver) {
    TestCity::Options options;
    options.originals = 1;
    options.originalWidth = options.originalHeight = 64;
    const TestCity & city = open(options);
    Controller::setMaxTextureMemory(3 * city.node(0)->content.blockSizes[0]);
    settle([&] {
        wantOriginals(city, city.node(0), 1.0);
        want(city, city.node(1), 2.0);
    });
    EXPECT_TRUE(isOnCard(city.node(1)));
    EXPECT_FALSE(city.node(0)->content.originalTextures->get(0));
    EXPECT_EQ(files[0]->asked, 1U);
}

TEST_F(TTTMemoryControllerTest, WhatComesNearTakesTheMemoryOfWhatIsFar) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & city = open(options);
    Controller::setMaxTextureMemory(6 * city.node(0)->content.blockSizes[0]);
    const auto all = city.all();
    const auto wantFirst = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            want(city, all[i], 10.0 + double(i));
    };
    settle([&] { wantFirst(12); });
    settle([&] {
        wantFirst(12);
        want(city, all[15], 1.0);
    });
    EXPECT_TRUE(isOnCard(all[15]));
    for (std::size_t i = 0; i < 12; ++i)
        EXPECT_EQ(isOnCard(all[i]), i < 4) << i;
}

TEST_F(TTTMemoryControllerTest, WhatIsUrgentTakesTheMemoryOfWhatIsKeptInCaseOfNeed) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & city = open(options);
    const std::uint64_t block = city.node(0)->content.blockSizes[0];
    Controller::setMaxTextureMemory(9 * block); // four that keep their blocks leave less than a read takes
    const auto all = city.all();
    const auto others = [&] {
        for (std::size_t i = 0; i < 7; ++i)
            want(city, all[i], 10.0 + double(i), false);
    };
    for (int i = 0; i < 10; ++i) {
        frames(others, 1);
        files[0]->setStates(AsyncFile::RS_Ready);
    }
    ASSERT_EQ(controller->loadedTextures(), 4U);
    ASSERT_EQ(controller->pendingReads(), 0U);
    settle([&] {
        others();
        want(city, all[15], 50.0);
    });
    EXPECT_TRUE(isOnCard(all[15]));
    EXPECT_LE(controller->textureMemory(), 9 * block);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(isLoaded(all[i])) << "those wanted most stay: " << i;
}

TEST_F(TTTMemoryControllerTest, WhatIsUrgentAndWaitsForTheMemoryOfAReadKeepsFramesComing) {
    const TestCity & city = open({});
    Controller::setMaxTextureMemory(3 * city.node(0)->content.blockSizes[0]);
    const auto others = [&] { want(city, city.node(0), 10.0, false); };
    frames(others);
    files[0]->setStates(AsyncFile::RS_Processing);
    const auto wishes = [&] {
        others();
        want(city, city.node(1));
    };
    frames(wishes, 4);
    EXPECT_EQ(files[0]->asked, 1U);
    EXPECT_TRUE(controller->redisplayRequired());
    settle(wishes);
    EXPECT_TRUE(isOnCard(city.node(1)));
}

TEST_F(TTTMemoryControllerTest, ARootThatHasABlockKeepsTheAtlasOfItsTree) {
    const TestCity & city = open({});
    city.root()->content.blockPositions = city.node(0)->content.blockPositions;
    city.root()->content.blockSizes = city.node(0)->content.blockSizes;
    settle([&] { want(city, city.root()); });
    EXPECT_EQ(files[0]->asked, 0U);
    EXPECT_EQ(city.root()->content.texture(0), city.tree->getRootAtlas(0));
    settle([] {});
    EXPECT_EQ(city.root()->content.texture(0), city.tree->getRootAtlas(0));
}

TEST_F(TTTMemoryControllerTest, ABlockThatIsDueAndCannotBeReadPostsNoFrames) {
    const TestCity & city = open({});
    const std::uint64_t block = city.node(0)->content.blockSizes[0];
    Controller::setMaxTextureMemory(4 * block);
    const auto wishes = [&] {
        want(city, city.node(0), 10.0, false);
        want(city, city.node(1), 20.0, false);
    };
    frames(wishes);
    files[0]->setState(city.node(0)->content.blockPositions[0], AsyncFile::RS_Ready);
    files[0]->setState(city.node(1)->content.blockPositions[0], AsyncFile::RS_Failed);
    frames(wishes, 2);
    ASSERT_EQ(controller->failures().size(), 1U);
    Controller::setMaxTextureMemory(3 * block); // one that keeps its block, and not enough for another one
    canvas->redisplay();
    frames(wishes, 2);
    EXPECT_TRUE(canvas->redisplayPending()) << "at its time";
    time += 100.0;
    update();
    wishes();
    canvas->redisplay();
    for (int frame = 0; frame < 3; ++frame) {
        frames(wishes, 1);
        EXPECT_FALSE(canvas->redisplayPending());
        EXPECT_EQ(files[0]->asked, 2U);
    }
    Controller::setMaxTextureMemory(5 * block);
    frames(wishes, 1);
    EXPECT_EQ(files[0]->asked, 3U);
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, WhatIsNotUrgentKeepsNoFramesComing) {
    const TestCity & city = open({});
    const auto wishes = [&] { want(city, city.node(0), 10.0, false); };
    frames(wishes);
    EXPECT_EQ(controller->pendingReads(), 1U);
    EXPECT_FALSE(controller->redisplayRequired());
}

TEST_F(TTTMemoryControllerTest, WhatIsUrgentAndFindsNoReadFreeKeepsFramesComing) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & city = open(options);
    const auto all = city.all();
    const auto others = [&] {
        for (std::size_t i = 0; i < 8; ++i)
            want(city, all[i], 10.0, false);
    };
    frames(others);
    files[0]->setStates(AsyncFile::RS_Processing);
    const auto wishes = [&] {
        others();
        want(city, all[10]);
    };
    frames(wishes, 5);
    EXPECT_EQ(files[0]->asked, 8U);
    EXPECT_TRUE(controller->redisplayRequired());
    settle(wishes);
    EXPECT_TRUE(isOnCard(all[10]));
}

TEST_F(TTTMemoryControllerTest, MemoryIsReservedForTheMostThatABlockTakes) {
    constexpr auto dxt1 = Tree::TextureFormatDXT1;
    const std::pair<Tree::TextureFormat, std::uint64_t> shares[] = {{Tree::TextureFormatRGBA8, 2},
                                                                    {Tree::TextureFormatLuminance8, 2},
                                                                    {Tree::TextureFormatRGBA5551, 3},
                                                                    {Tree::TextureFormatDXT1, 2}};
    for (const auto & [format, share] : shares) {
        forget();
        makeController();
        TestCity::Options options;
        options.format = format;
        const TestCity & city = open(options);
        frames([&] { want(city, city.node(0)); });
        EXPECT_EQ(controller->textureMemory(), share * city.node(0)->content.blockSizes[0]) << format;
        files[0]->setStates(AsyncFile::RS_Ready);
        controller->update(nullptr, nullptr); // loaded, not on the card
        EXPECT_LE(controller->textureMemory(), share * city.node(0)->content.blockSizes[0]) << format;
        EXPECT_TRUE(isLoaded(city.node(0)));
    }
    forget();
    makeController();
    TestCity::Options options;
    options.format = Tree::TextureFormatJPEG;
    options.atlasSize = 32;
    options.originals = 1;
    options.originalWidth = options.originalHeight = 256;
    const TestCity & city = open(options);
    frames([&] { want(city, city.node(0)); });
    EXPECT_EQ(controller->textureMemory(), city.node(0)->content.blockSizes[0] +
                                               2 * StreamTexture::textureBytes(32, 32, dxt1) + 3 * 32 * 32)
        << "the picture as well";
    frames([&] {});
    EXPECT_EQ(controller->textureMemory(), 0U);
    const auto wishes = [&] { wantOriginals(city, city.node(0)); };
    frames(wishes);
    const std::uint64_t block = city.node(0)->content.originalTexturesBlockSizes[0];
    EXPECT_EQ(controller->textureMemory(), block + 2 * 4 * block + 3 * 2 * 3 * block)
        << "nobody knows more of it";
    files[0]->setStates(AsyncFile::RS_Ready);
    frames(wishes, 1);
    EXPECT_EQ(controller->textureMemory(),
              block + 2 * StreamTexture::textureBytes(256, 256, dxt1) + 3 * 256 * 256);
}

TEST_F(TTTMemoryControllerTest, AJPEGThatIsLargerThanItWasGuessedIsReadWhenThereIsRoom) {
    TestCity::Options options;
    options.format = Tree::TextureFormatJPEG;
    options.originals = 1;
    options.originalWidth = options.originalHeight = 512; // much larger than 4 times its bytes
    const TestCity & city = open(options);
    const std::uint64_t decoded = StreamTexture::textureBytes(512, 512, Tree::TextureFormatDXT1);
    const std::uint64_t block = city.node(0)->content.originalTexturesBlockSizes[0];
    ASSERT_GT(decoded, 5 * block);
    Controller::setMaxTextureMemory(2 * decoded + block);
    const auto wishes = [&] { wantOriginals(city, city.node(0)); };
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 1U) << "once, to see how large it is";
    EXPECT_EQ(controller->textureMemory(), 0U);
    EXPECT_FALSE(city.node(0)->content.originalTextures->get(0));
    Controller::setMaxTextureMemory(2 * decoded + block + 3 * 512 * 512);
    settle(wishes);
    EXPECT_EQ(files[0]->asked, 2U);
    EXPECT_TRUE(city.node(0)->content.originalTexturesUploaded());
    EXPECT_EQ(controller->textureMemory(), decoded);
}

TEST_F(TTTMemoryControllerTest, ATreeThatDiesDuringAReadLeavesNothingBehind) {
    for (const auto state : {AsyncFile::RS_Queued, AsyncFile::RS_Processing, AsyncFile::RS_Ready}) {
        TestCity & city = open({});
        const SO<HeldFile> file = files.back();
        frames([&] { want(city, city.node(0)); });
        ASSERT_EQ(file->known.size(), 1U);
        file->setStates(state);
        const NBX::WO<Tree> tree(city.tree);
        controller->notifyTreeDestruction(city.tree.get());
        EXPECT_EQ(controller->pendingReads(), 0U);
        EXPECT_TRUE(file->known.empty());
        controller->files.clear();
        files.clear();
        EXPECT_EQ(city.tree->references(), 1) << "nobody holds it but the test";
        cities.clear();
        EXPECT_FALSE(tree);
        update();
        update();
        EXPECT_EQ(controller->loadedTextures(), 0U);
        EXPECT_EQ(controller->waitingUploads(), 0U);
        EXPECT_FALSE(controller->redisplayRequired());
        EXPECT_EQ(controller->textureMemory(), 0U);
    }
}

TEST_F(TTTMemoryControllerTest, ATreeThatDiesTakesItsTexturesAlong) {
    TestCity::Options options;
    options.originals = 2;
    const TestCity & city = open(options);
    const Names before = countNames();
    settle([&] {
        want(city, city.node(0));
        wantOriginals(city, city.node(0));
    });
    EXPECT_EQ(countNames().textures, before.textures + 3);
    RenderNode & leaf = city.node(0)->content;
    controller->notifyTreeDestruction(city.tree.get());
    EXPECT_FALSE(leaf.texture(0));
    EXPECT_FALSE(leaf.originalTextures->get(0));
    glBindTexture(GL_TEXTURE_2D, 0);
    EXPECT_EQ(countNames().textures, before.textures);
}

TEST_F(TTTMemoryControllerTest, JPEGBecomesBlocksOfDXT1) {
    TestCity::Options options;
    options.format = Tree::TextureFormatJPEG;
    options.atlasSize = 32;
    options.originals = 1;
    options.originalWidth = 16;
    options.originalHeight = 32;
    const TestCity & city = open(options);
    const auto wishes = [&] {
        want(city, city.node(0));
        wantOriginals(city, city.node(0));
    };
    settle(wishes);
    const auto atlas = NBX::soCast<StreamTexture>(city.node(0)->content.texture(0));
    ASSERT_TRUE(atlas);
    EXPECT_EQ(atlas->format(), Tree::TextureFormatDXT1);
    EXPECT_TRUE(atlas->isUploaded());
    EXPECT_TRUE(city.node(0)->content.originalTexturesUploaded());
    EXPECT_EQ(controller->textureMemory(), StreamTexture::textureBytes(32, 32, Tree::TextureFormatDXT1) +
                                               StreamTexture::textureBytes(16, 32, Tree::TextureFormatDXT1));
}

TEST_F(TTTMemoryControllerTest, ABrokenJPEGIsDroppedAndTheParentsAtlasStays) {
    TestCity::Options options;
    options.format = Tree::TextureFormatJPEG;
    options.atlasSize = 32;
    TestCity & city = open(options);
    // The heads of the pictures stay whole, and a code in the first one has no meaning.
    const auto start = files[0]->bytes.begin() + std::ptrdiff_t(city.node(0)->content.blockPositions[0]);
    const auto end = start + std::ptrdiff_t(city.node(0)->content.blockSizes[0]);
    const unsigned char scan[] = {0xFF, 0xDA};
    const auto place = std::search(start, end, std::begin(scan), std::end(scan));
    ASSERT_NE(place, end);
    *(place + 3) = 0xFF;
    const auto wishes = [&] {
        want(city, city.node(0));
        want(city, city.node(1));
    };
    settle(wishes);
    EXPECT_FALSE(isLoaded(city.node(0)));
    EXPECT_TRUE(isOnCard(city.node(1)));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed"), 1U) << reports;
    EXPECT_FALSE(controller->redisplayRequired());
    ASSERT_EQ(controller->failures().size(), 1U);
    EXPECT_EQ(controller->failures()[0].offset, city.node(0)->content.blockPositions[0]);
    EXPECT_EQ(controller->failures()[0].retrySeconds, 1.0);
    EXPECT_EQ(controller->textureMemory(), StreamTexture::textureBytes(32, 32, Tree::TextureFormatDXT1));
    const unsigned asked = files[0]->asked;
    frames(wishes, 20);
    EXPECT_EQ(files[0]->asked, asked) << "not before its time";
    time += 1.5;
    settle(wishes);
    EXPECT_EQ(files[0]->asked, asked + 1);
    EXPECT_EQ(controller->failures()[0].retrySeconds, 2.0) << "twice as long";
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed"), 1U) << reports;
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, ABrokenJPEGIsToldAlsoAfterAFailedRead) {
    TestCity::Options options;
    options.format = Tree::TextureFormatJPEG;
    options.atlasSize = 32;
    TestCity & city = open(options);
    const auto start = files[0]->bytes.begin() + std::ptrdiff_t(city.node(0)->content.blockPositions[0]);
    const unsigned char scan[] = {0xFF, 0xDA};
    *(std::search(start, files[0]->bytes.end(), std::begin(scan), std::end(scan)) + 3) = 0xFF;
    const auto wishes = [&] { want(city, city.node(0)); };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Failed);
    update();
    wishes();
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed"), 0U) << reports;
    time += 10.0;
    settle(wishes);
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed"), 1U) << reports;
    time += 10.0;
    settle(wishes);
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed"), 1U) << "once";
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, FailedReadsAreAskedForAgainAfterGrowingPauses) {
    const TestCity & city = open({});
    const auto wishes = [&] {
        want(city, city.node(0));
        want(city, city.node(1));
    };
    frames(wishes);
    std::vector<double> asked{time};
    for (unsigned known = files[0]->asked; time < 1030.0; time += 0.25) {
        files[0]->setStates(AsyncFile::RS_Failed);
        update();
        wishes();
        if (files[0]->asked != known) asked.push_back(time);
        known = files[0]->asked;
    }
    ASSERT_GE(asked.size(), 6U);
    const double pauses[] = {1.0, 2.0, 4.0, 4.0};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(asked[i + 1] - asked[i], pauses[i], 0.51) << i;
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports[0].level, 2);
    EXPECT_NE(reports[0].message.find(L"held: city"), std::wstring::npos) << reports;
    EXPECT_EQ(controller->failures().size(), 2U);
    reports.clear();
    time += 5.0;
    settle(wishes);
    EXPECT_TRUE(isOnCard(city.node(0)));
    EXPECT_TRUE(isOnCard(city.node(1)));
    EXPECT_TRUE(controller->failures().empty());
    EXPECT_TRUE(reports.empty()) << reports;
    // A new outage is told again.
    const auto others = [&] { want(city, city.node(2)); };
    frames(others);
    files[0]->setStates(AsyncFile::RS_Failed);
    update();
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, AFailureSettlesAndPostsTheFrameOfTheNextTry) {
    const TestCity & city = open({});
    const auto wishes = [&] { want(city, city.node(0)); };
    frames(wishes);
    files[0]->setStates(AsyncFile::RS_Failed);
    update();
    wishes();
    canvas->redisplay();
    EXPECT_FALSE(canvas->redisplayPending());
    const double before = NBX::NBXTime::now();
    update();
    EXPECT_FALSE(controller->redisplayRequired());
    EXPECT_TRUE(canvas->redisplayPending());
    EXPECT_NEAR(canvas->redisplayTime() - before, 1.0, 0.5);
    wishes();
    controller->tryAgain();
    frames(wishes, 1);
    EXPECT_EQ(files[0]->asked, 2U) << "at once";
    reports.clear();
}

/// Who waits for a web server hands on what happens meanwhile.
TEST_F(TTTMemoryControllerTest, TreesMayComeAndGoWhileAFileIsOpened) {
    for (int i = 0; i < 3; ++i)
        cities.push_back(std::make_unique<TestCity>(TestCity::Options()));
    const SO<AsyncFile> file = cities[2]->newFile();
    controller->files[L"city"] = file;
    std::vector<SO<TexturedTriangleTree>> others;
    const auto comeAndGo = [&] {
        cities[0].reset();
        for (int i = 0; i < 40; ++i) {
            others.emplace_back(new TexturedTriangleTree());
            controller->registerTree(others.back());
        }
    };
    for (const auto & city : cities)
        controller->registerTree(city->tree);
    EXPECT_TRUE(controller->failures().empty());
    cities.push_back(std::make_unique<TestCity>(TestCity::Options()));
    controller->whileOpening = comeAndGo;
    controller->registerTree(cities[3]->tree);
    EXPECT_TRUE(controller->failures().empty());
    controller->files.clear();
    cities[1]->tree->changePagingFileName(L"gone", 0);
    controller->registerTree(cities[1]->tree);
    EXPECT_EQ(controller->failures().size(), 1U);
    reports.clear();
    controller->files[L"gone"] = file;
    controller->whileOpening = [&] {
        others.clear();
        comeAndGo();
    };
    cities[0] = std::make_unique<TestCity>(TestCity::Options());
    controller->tryAgain();
    EXPECT_TRUE(controller->failures().empty());
    std::erase(cities, nullptr);
}

TEST_F(TTTMemoryControllerTest, AFileThatAnotherOneReplacedIsOpenedByTryingAgain) {
    class ChangedFile : public HeldFile {
        NBX_TEMPLATE_CLASS(ChangedFile, HeldFile)
    public:
        using HeldFile::HeldFile;
        bool hasChanged() const override { return isChanged; }
        bool isChanged = false;
    };
    cities.push_back(std::make_unique<TestCity>(TestCity::Options()));
    const TestCity & city = *cities.back();
    const SO<ChangedFile> old(new ChangedFile(city.paging));
    controller->files[L"city"] = old;
    controller->registerTree(city.tree);
    const auto wishes = [&] { want(city, city.node(0)); };
    frames(wishes);
    ASSERT_EQ(old->known.size(), 1U);
    controller->tryAgain();
    EXPECT_EQ(controller->opened, 1) << "it is the same file";
    EXPECT_EQ(old->known.size(), 1U);
    old->isChanged = true;
    files.push_back(city.newFile());
    controller->files[L"city"] = files[0];
    controller->tryAgain();
    EXPECT_EQ(controller->opened, 2);
    EXPECT_EQ(controller->pendingReads(), 0U);
    settle(wishes);
    EXPECT_TRUE(isOnCard(city.node(0)));
    EXPECT_EQ(files[0]->asked, 1U);
}

TEST_F(TTTMemoryControllerTest, SidesInABlockThatCannotBeAreRefused) {
    TestCity::Options options;
    options.originals = 1;
    for (const auto format : {Tree::TextureFormatRGBA8, Tree::TextureFormatDXT1, Tree::TextureFormatJPEG}) {
        options.format = format;
        for (const auto & [width, height] :
             {std::pair(0, 8), std::pair(8, -8), std::pair(1 << 30, 1 << 30), std::pair(65536, 65536),
              std::pair(8, 9), std::pair(4, 4), std::pair(-1, -1), std::pair(32768, 32768)}) {
            SCOPED_TRACE(testing::Message() << format << ": " << width << " x " << height);
            forget();
            makeController();
            const TestCity & city = open(options);
            const std::uint64_t at = city.node(0)->content.originalTexturesBlockPositions[0];
            for (std::size_t i = 0; i < 4; ++i) {
                files[0]->bytes[at + i] = static_cast<std::uint8_t>(unsigned(width) >> (8 * i));
                files[0]->bytes[at + 4 + i] = static_cast<std::uint8_t>(unsigned(height) >> (8 * i));
            }
            settle([&] { wantOriginals(city, city.node(0)); });
            EXPECT_FALSE(city.node(0)->content.originalTextures->get(0));
            EXPECT_EQ(controller->textureMemory(), 0U);
            EXPECT_EQ(reports.size(), 1U) << reports;
            EXPECT_EQ(reports.last().level, 2);
            reports.clear();
        }
    }
}

TEST_F(TTTMemoryControllerTest, PlacesBeyondTheFileAreNotRead) {
    const TestCity & city = open({});
    const std::uint64_t end = files[0]->bytes.size();
    const std::pair<std::uint64_t, std::uint64_t> places[] = {
        {end - 10, 11}, {end, 1}, {~std::uint64_t(0) - 3, 8}, {0, ~std::uint64_t(0)}, {0, 1ULL << 33U}};
    for (const auto & [position, size] : places) {
        city.node(0)->content.blockPositions = {position};
        city.node(0)->content.blockSizes = {size};
        frames([&] { want(city, city.node(0)); }, 3);
        EXPECT_EQ(files[0]->asked, 0U);
        EXPECT_FALSE(controller->redisplayRequired());
    }
    EXPECT_EQ(reports.size(), 1U) << "one for the file\n" << reports;
    reports.clear();
    city.node(0)->content.blockSizes = {0};
    frames([&] { want(city, city.node(0)); }, 3);
    city.node(0)->content.blockPositions.clear();
    frames([&] { want(city, city.node(0)); }, 3);
    frames([&] { want(city, city.root()); }, 3);
    EXPECT_EQ(files[0]->asked, 0U);
}

/// Cut at every border of a block, and anywhere; changed anywhere.
TEST_F(TTTMemoryControllerTest, DamagedFilesAreHarmless) {
    std::mt19937 random(17);
    for (const auto format :
         {Tree::TextureFormatRGBA5551, Tree::TextureFormatDXT1, Tree::TextureFormatJPEG}) {
        forget();
        makeController();
        TestCity::Options options;
        options.format = format;
        options.atlasSize = 8;
        options.originals = 1;
        const TestCity & city = open(options);
        const TestCity::Bytes sound = files[0]->bytes;
        std::vector<std::size_t> cuts;
        for (const NodePointer & node : city.all()) {
            cuts.push_back(node->content.blockPositions[0]);
            cuts.push_back(node->content.originalTexturesBlockPositions[0]);
        }
        for (unsigned i = 0; i < randomChanges() / 3; ++i)
            cuts.push_back(random() % sound.size());
        const auto wishes = [&] {
            for (const NodePointer & node : city.all()) {
                want(city, node);
                wantOriginals(city, node);
            }
        };
        const auto look = [&](TestCity::Bytes bytes) {
            controller->notifyTreeDestruction(city.tree.get());
            files = {SO<HeldFile>(new HeldFile(std::move(bytes)))};
            controller->files[L"city"] = files[0];
            controller->registerTree(city.tree);
            settle(wishes);
        };
        for (const std::size_t cut : cuts)
            look({sound.begin(), sound.begin() + std::ptrdiff_t(cut)});
        for (unsigned i = 0; i < randomChanges() / 3; ++i) {
            TestCity::Bytes changed = sound;
            for (unsigned k = 0; k < 1 + i % 5; ++k)
                changed[random() % changed.size()] = static_cast<std::uint8_t>(random());
            look(std::move(changed));
        }
        look(sound);
        for (const NodePointer & node : city.all()) {
            EXPECT_TRUE(isOnCard(node)) << format;
            EXPECT_TRUE(node->content.originalTexturesUploaded());
        }
    }
    reports.clear();
}

TEST_F(TTTMemoryControllerTest, AHundredFramesOfTwoTreesSettle) {
    TestCity::Options options;
    options.levels = 2;
    const TestCity & first = open(options);
    options.name = L"other";
    options.format = Tree::TextureFormatJPEG;
    const TestCity & second = open(options);
    int pictures = 0;
    for (int frame = 0; frame < 100; ++frame) {
        update(); // once for both
        pictures += controller->redisplayRequired();
        for (const TestCity * city : {&first, &second})
            for (const NodePointer & node : city->all())
                want(*city, node);
        for (const auto & file : files)
            file->setStates(AsyncFile::RS_Ready);
        Thread::sleep(0.001);
    }
    EXPECT_FALSE(controller->redisplayRequired());
    EXPECT_GT(pictures, 4);
    EXPECT_LT(pictures, 90);
    for (const TestCity * city : {&first, &second})
        for (const NodePointer & node : city->all())
            EXPECT_TRUE(isOnCard(node));
    EXPECT_EQ(files[0]->asked + files[1]->asked, 40U);
}

TEST_F(TTTMemoryControllerTest, TwoViewsHaveWishesOfTheirOwn) {
    const TestCity & city = open({});
    SO<NBX::OffscreenCanvasGL> other(new NBX::OffscreenCanvasGL(16, 16));
    ASSERT_TRUE(canvas->makeContextCurrent());
    const auto frameOf = [&](const SO<NBX::EngineGL> & view, unsigned node) {
        controller->update(view, nullptr);
        want(city, city.node(node));
        files[0]->setStates(AsyncFile::RS_Ready);
    };
    for (int i = 0; i < 4; ++i) {
        frameOf(engine, 0);
        frameOf(other->engine(), 1);
    }
    EXPECT_EQ(files[0]->asked, 2U);
    EXPECT_TRUE(isLoaded(city.node(0)));
    EXPECT_TRUE(isLoaded(city.node(1)));
    // Only one of them moves; the other is at rest, and keeps what it shows under a small budget.
    Controller::setMaxTextureMemory(3 * city.node(0)->content.blockSizes[0]);
    for (int i = 0; i < 4; ++i)
        frameOf(engine, 2);
    EXPECT_TRUE(isLoaded(city.node(1)));
    EXPECT_TRUE(isLoaded(city.node(2)));
    EXPECT_FALSE(isLoaded(city.node(0)));
    other->destroy();
    other = nullptr;
    ASSERT_TRUE(canvas->makeContextCurrent());
    Controller::setMaxTextureMemory(2 * city.node(0)->content.blockSizes[0]);
    for (int i = 0; i < 4; ++i)
        frameOf(engine, 3);
    EXPECT_FALSE(isLoaded(city.node(1))) << "its view is gone";
    EXPECT_TRUE(isLoaded(city.node(3)));
}

TEST_F(TTTMemoryControllerTest, DistancesFollowTheViewInTheFrameOfTheTree) {
    const TestCity & city = open({});
    const auto wishes = [&] {
        want(city, city.node(0), 1.0);
        want(city, city.node(3), 2.0);
    };
    settle(wishes);
    ASSERT_EQ(controller->loadedNodes()->entries().size(), 2U);
    // From beyond the far corner.
    NBX::Matrix4x4Base<double> modelView;
    for (int i = 0; i < 3; ++i)
        modelView(i, 3) = i == 1 ? 0.0 : -1500.0;
    const SO<const NBX::ViewInfo> view(
        new NBX::ViewInfo(modelView, NBX::Matrix4x4Base<double>(), NBX::Area(0, 0, 64, 64)));
    manager->beginFrame();
    manager->estimate(visibilityKey(city.node(0)), 5);
    controller->recalculateNodeDistances(city.tree, view, manager);
    for (const auto & entry : controller->loadedNodes()->entries()) {
        const bool isFirst = entry.node == city.node(0);
        const double side = isFirst ? 1500.0 - 512.0 : 1500.0 - 1024.0;
        EXPECT_NEAR(entry.distance, std::sqrt(2.0) * side, 1e-6);
        EXPECT_EQ(entry.pixelCount, isFirst ? 5 : 0);
    }
}

TEST_F(TTTMemoryControllerTest, AViewThatTurnsHasOneMoreFrame) {
    const TestCity & city = open({});
    const NBX::Matrix4x4Base<double> straight;
    NBX::Matrix4x4Base<double> turned;
    turned(0, 0) = turned(2, 2) = -1.0;
    const auto frame = [&](const NBX::Matrix4x4Base<double> & modelView) {
        update();
        controller->recalculateNodeDistances(
            city.tree, new NBX::ViewInfo(modelView, NBX::Matrix4x4Base<double>(), NBX::Area(0, 0, 64, 64)),
            manager);
    };
    frame(straight);
    frame(straight);
    EXPECT_FALSE(controller->redisplayRequired());
    canvas->redisplay();
    frame(turned);
    EXPECT_TRUE(controller->redisplayRequired());
    EXPECT_TRUE(canvas->redisplayPending());
    frame(turned);
    EXPECT_FALSE(controller->redisplayRequired());
}

TEST_F(TTTMemoryControllerTest, ATreeThatIsDrawnTwiceInAPictureSettles) {
    const TestCity & city = open({});
    const NBX::Matrix4x4Base<double> straight;
    NBX::Matrix4x4Base<double> turned, other;
    turned(0, 0) = turned(2, 2) = -1.0;
    other(0, 0) = other(1, 1) = -1.0;
    const auto frame = [&](const std::vector<NBX::Matrix4x4Base<double>> & modelViews) {
        update();
        for (const auto & modelView : modelViews)
            controller->recalculateNodeDistances(
                city.tree,
                new NBX::ViewInfo(modelView, NBX::Matrix4x4Base<double>(), NBX::Area(0, 0, 64, 64)), manager);
    };
    frame({straight, turned});
    EXPECT_TRUE(controller->redisplayRequired());
    frame({straight, turned});
    EXPECT_FALSE(controller->redisplayRequired());
    frame({straight, other});
    EXPECT_TRUE(controller->redisplayRequired());
    frame({straight, other});
    EXPECT_FALSE(controller->redisplayRequired());
    frame({straight});
    frame({straight});
    EXPECT_FALSE(controller->redisplayRequired());
    frame({straight, other});
    EXPECT_TRUE(controller->redisplayRequired()) << "it has come again";
}

TEST_F(TTTMemoryControllerTest, AWishThatBecomesNearerOrUrgentHasOneMoreFrame) {
    const TestCity & city = open({});
    settle([&] { want(city, city.node(0), 10.0, false); });
    frames([&] { want(city, city.node(0), 9.0, false); }, 1);
    EXPECT_TRUE(controller->redisplayRequired());
    frames([&] { want(city, city.node(0), 9.0, false); }, 1);
    EXPECT_FALSE(controller->redisplayRequired());
    frames([&] { want(city, city.node(0), 9.0, true); }, 1);
    EXPECT_TRUE(controller->redisplayRequired());
}

TEST_F(TTTMemoryControllerTest, RootAtlasesAndMeshesAreNamedApart) {
    const TestCity & city = open({});
    const auto resident = Controller::residentBytes(*city.tree);
    EXPECT_EQ(resident.rootAtlases, 2U * 4 * (256 + 64 + 16 + 4 + 1));
    EXPECT_EQ(resident.meshes, 0U);
    EXPECT_EQ(resident.rays, 0U) << "as long as none asked";
    EXPECT_EQ(controller->textureMemory(), 0U);
}

} // namespace
} // namespace ZMT::CORE
