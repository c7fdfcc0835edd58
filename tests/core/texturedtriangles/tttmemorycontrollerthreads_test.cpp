// Trees come and go while files are read and the codec works: what the thread sanitizer is to see.

#include <atomic>
#include <random>

#include <gtest/gtest.h>

#include <nbx/data/file.h>
#include <nbx/engine/engine.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/view/viewinfo.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <zmt/core/misc/thread.h>

#include "core/texturedtriangles/visibilitymanagergl.h"
#include "testcity.h"

namespace ZMT::CORE {
namespace {

using NBX::SO;
using Tree = TexturedTriangleTree;

/// A city whose paging file lies on the disk.
class StoredCity : public TestCity {
public:
    explicit StoredCity(const Options & options) : TestCity(options) {
        NBX::File file(NBX::StringUtils::WString2Utf8String(options.name), NBX::WM_Create);
        file.write(paging.data(), paging.size());
    }
};

TestCity::Options optionsOf(int number, const std::string & folder) {
    TestCity::Options options;
    options.format = number % 3 == 0 ? Tree::TextureFormatDXT1 : Tree::TextureFormatJPEG;
    options.atlasSize = 32;
    options.levels = 1 + number % 2;
    options.originals = 2;
    options.originalWidth = options.originalHeight = 16 << (number % 2);
    options.name = NBX::StringUtils::Utf8String2WString(folder + "/" + std::to_string(number) + ".opaque");
    return options;
}

void wantAll(TTTMemoryController & controller, const TestCity & city) {
    for (const auto & node : city.all()) {
        controller.reportNeededNode(city.tree, node, 10.0, false, true, nullptr);
        if (node->content.originalTextures)
            controller.reportNeededNode(city.tree, node, 10.0, true, true, nullptr);
    }
}

std::size_t loaded(const TestCity & city) {
    std::size_t count = 0;
    for (const auto & node : city.all())
        count += node->content.texture(0) ? 1U : 0U;
    return count;
}

TEST(TTTMemoryControllerThreads, TreesComeAndGoWhileTheCodecWorksAndFilesArrive) {
    const RecordedReports reports;
    const TemporaryFolder folder;
    const std::string path = std::getenv("TMPDIR");
    const SO<TTTMemoryController> controller(new TTTMemoryController);
    std::mt19937 random(23);
    std::vector<std::unique_ptr<StoredCity>> cities;
    std::size_t most = 0;
    int number = 0;
    for (int frame = 0; frame < 300; ++frame) {
        controller->update(nullptr, nullptr);
        if (cities.size() < 4 && random() % 8 == 0) {
            cities.push_back(std::make_unique<StoredCity>(optionsOf(number++, path)));
            controller->registerTree(cities.back()->tree);
        }
        for (const auto & city : cities)
            if (random() % 10 != 0) wantAll(*controller, *city);
        for (const auto & city : cities)
            most = std::max(most, loaded(*city));
        if (!cities.empty() && random() % 12 == 0) {
            const auto dies = cities.begin() + std::ptrdiff_t(random() % cities.size());
            controller->notifyTreeDestruction((*dies)->tree.get());
            cities.erase(dies);
        }
        if (random() % 4 == 0) Thread::sleep(0.001);
    }
    EXPECT_GT(most, 3U);
    cities.clear();
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(TTTMemoryControllerThreads, WhatIsWantedComesWholeFromADisk) {
    const RecordedReports reports;
    const TemporaryFolder folder;
    const std::string path = std::getenv("TMPDIR");
    const SO<TTTMemoryController> controller(new TTTMemoryController);
    std::vector<std::unique_ptr<StoredCity>> cities;
    for (int i = 0; i < 3; ++i) {
        cities.push_back(std::make_unique<StoredCity>(optionsOf(i, path)));
        controller->registerTree(cities.back()->tree);
    }
    const double begin = NBX::NBXTime::now();
    do {
        controller->update(nullptr, nullptr);
        for (const auto & city : cities)
            wantAll(*controller, *city);
        Thread::sleep(0.001);
    } while (controller->redisplayRequired() && NBX::NBXTime::now() - begin < 120.0);
    for (const auto & city : cities) {
        EXPECT_EQ(loaded(*city), city->all().size());
        for (const auto & node : city->all())
            EXPECT_TRUE(!node->content.originalTextures || node->content.originalTexturesLoaded());
        controller->notifyTreeDestruction(city->tree.get());
    }
    EXPECT_EQ(controller->textureMemory(), 0U);
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
} // namespace ZMT::CORE
