#include <zmt/core/terrain/frame/terrainpainterframemanager.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>

using Manager = ZMT::CORE::TerrainPainterFrameManager;

namespace {

std::vector<std::string> s_calls;

class Named : public Manager::FrameCallback {
    NBX_TEMPLATE_CLASS(Named, Manager::FrameCallback)
public:
    explicit Named(std::string name) : name_(std::move(name)) {}
    void call(const Manager::Info & info) override {
        s_calls.push_back(name_);
        info_ = info;
        if (during_) during_();
    }

    Manager::Info info_{nullptr, false};
    std::function<void()> during_;

private:
    std::string name_;
};

struct List {
    const char * name;
    bool (*add)(const NBX::SO<Manager::FrameCallback> &);
    bool (*remove)(const NBX::SO<Manager::FrameCallback> &);
    void (*call)(const Manager::Info &);
};

const List s_lists[] = {{"begin", Manager::RegisterBeginFrameCallback, Manager::UnregisterBeginFrameCallback,
                         Manager::CallBeginFrameCallbacks},
                        {"end", Manager::RegisterEndFrameCallback, Manager::UnregisterEndFrameCallback,
                         Manager::CallEndFrameCallbacks}};

class TerrainPainterFrameManagerTest : public testing::TestWithParam<List> {
protected:
    void SetUp() override { s_calls.clear(); }
    void TearDown() override {
        for (const auto & callback : {a, b})
            GetParam().remove(callback);
    }

    const NBX::SO<Named> a{new Named("a")}, b{new Named("b")};
};

TEST_P(TerrainPainterFrameManagerTest, CallsInTheOrderOfRegistration) {
    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    EXPECT_TRUE(GetParam().add(b));
    EXPECT_TRUE(GetParam().add(a));
    GetParam().call({engine.get(), true});
    EXPECT_EQ(s_calls, (std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(a->info_.engine, engine.get());
    EXPECT_TRUE(a->info_.inMotion);
    for (const List & other : s_lists)
        if (other.name != GetParam().name) other.call({engine.get(), false});
    EXPECT_EQ(s_calls.size(), 2U) << "the other list";
}

TEST_P(TerrainPainterFrameManagerTest, RefusesNullAndWhatIsThere) {
    EXPECT_FALSE(GetParam().add(nullptr));
    EXPECT_TRUE(GetParam().add(a));
    EXPECT_FALSE(GetParam().add(a));
    GetParam().call({nullptr, false});
    EXPECT_EQ(s_calls.size(), 1U);
}

TEST_P(TerrainPainterFrameManagerTest, RemovesWhatIsThere) {
    EXPECT_FALSE(GetParam().remove(nullptr));
    EXPECT_FALSE(GetParam().remove(a));
    GetParam().add(a);
    GetParam().add(b);
    EXPECT_TRUE(GetParam().remove(a));
    EXPECT_FALSE(GetParam().remove(a));
    GetParam().call({nullptr, false});
    EXPECT_EQ(s_calls, std::vector<std::string>{"b"});
}

TEST_P(TerrainPainterFrameManagerTest, TheListMayChangeWhileItIsCalled) {
    a->during_ = [&] {
        GetParam().remove(a);
        GetParam().add(b);
    };
    GetParam().add(a);
    GetParam().call({nullptr, false});
    GetParam().call({nullptr, false});
    EXPECT_EQ(s_calls, (std::vector<std::string>{"a", "b"}));
}

INSTANTIATE_TEST_SUITE_P(Lists, TerrainPainterFrameManagerTest, testing::ValuesIn(s_lists),
                         [](const auto & info) { return std::string(info.param.name); });

TEST(TerrainPainterFrameManager, KeepsOneBox) {
    Manager::bboxOfLastRenderedGeometryPatches() = NBX::Bounds({1, 2, 3}, {4, 5, 6});
    EXPECT_EQ(Manager::bboxOfLastRenderedGeometryPatches(), NBX::Bounds({1, 2, 3}, {4, 5, 6}));
    Manager::bboxOfLastRenderedGeometryPatches() = NBX::Bounds();
}

} // namespace
