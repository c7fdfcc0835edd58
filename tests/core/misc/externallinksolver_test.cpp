#include <gtest/gtest.h>

#include <zmt/core/misc/externallinksolver.h>

using ZMT::UTIL::ExternalLinkSolver;
using ZMT::UTIL::LinkType;

namespace {

LinkType s_type;
std::wstring s_proposal;

bool choose(LinkType type, std::wstring & name) {
    s_type = type;
    s_proposal = name;
    name = L"chosen.jpg";
    return true;
}

bool refuse(LinkType, std::wstring & name) {
    name = L"half typed";
    return false;
}

class ExternalLinkSolverTest : public testing::Test {
protected:
    ExternalLinkSolverTest() { ExternalLinkSolver::resetModified(); }
    ~ExternalLinkSolverTest() override {
        ExternalLinkSolver::setPickFileCallback(nullptr);
        ExternalLinkSolver::resetModified();
    }

    std::wstring name_ = L"lost.jpg";
};

TEST_F(ExternalLinkSolverTest, WithoutACallbackNothingIsChosen) {
    EXPECT_FALSE(ExternalLinkSolver::pickFileCallback(0, name_));
    EXPECT_EQ(name_, L"lost.jpg");
    EXPECT_FALSE(ExternalLinkSolver::modified());
}

TEST_F(ExternalLinkSolverTest, ARefusalChangesNoLink) {
    ExternalLinkSolver::setPickFileCallback(refuse);
    EXPECT_FALSE(ExternalLinkSolver::pickFileCallback(0, name_));
    EXPECT_FALSE(ExternalLinkSolver::modified());
}

TEST_F(ExternalLinkSolverTest, AChoiceIsAChangeUntilReset) {
    ExternalLinkSolver::setPickFileCallback(choose);
    EXPECT_TRUE(ExternalLinkSolver::pickFileCallback(3, name_));
    EXPECT_EQ(s_type, 3);
    EXPECT_EQ(s_proposal, L"lost.jpg");
    EXPECT_EQ(name_, L"chosen.jpg");
    EXPECT_TRUE(ExternalLinkSolver::modified());

    ExternalLinkSolver::setPickFileCallback(refuse);
    ExternalLinkSolver::pickFileCallback(0, name_);
    EXPECT_TRUE(ExternalLinkSolver::modified()) << "a later refusal takes nothing back";
    ExternalLinkSolver::resetModified();
    EXPECT_FALSE(ExternalLinkSolver::modified());
}

} // namespace
