#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <nbx/object/progress.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>

#include "support/testterrain.h"

/// What the tests of trees of levels of detail share.
namespace TreeTest {

using ZMT::CORE::CreateGeometryTree;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GridData;

/// The construction, without its statistics on the standard error stream.
inline NBX::SO<GeometryPatch> build(const NBX::SO<GridData> & grid, unsigned maxVertices,
                                    unsigned threads = 1) {
    testing::internal::CaptureStderr();
    std::srand(1);
    NBX::SO<GeometryPatch> root = CreateGeometryTree::create(grid.get(), maxVertices, threads);
    testing::internal::GetCapturedStderr();
    return root;
}

inline NBX::SO<GridData> flatGrid(unsigned cellsX, unsigned cellsY) {
    return TestTerrain::grid({cellsX + 1, cellsY + 1}, [](unsigned, unsigned) { return 5.0; });
}

/// Lets a number of updates pass and then asks to stop. Waits in each for the time of the next.
class StoppingDisplay : public NBX::ProgressDisplay {
public:
    explicit StoppingDisplay(unsigned updates) : updates_(updates) { NBX::Progress::setDisplay(this); }
    ~StoppingDisplay() override { NBX::Progress::setDisplay(nullptr); }

    void begin(const NBX::Progress & progress) override {
        title_ = progress.title();
        total_ = progress.totalValue();
    }
    bool update(const NBX::Progress & progress) override {
        values_.push_back(progress.currentValue());
        if (values_.size() > updates_) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(101));
        return true;
    }
    void end(const NBX::Progress & progress) override {
        ++ends_;
        isFinished_ = progress.isFinished();
    }

    std::string title_;
    double total_ = 0.0;
    std::vector<double> values_;
    unsigned ends_ = 0;
    bool isFinished_ = false;

private:
    unsigned updates_;
};

} // namespace TreeTest
