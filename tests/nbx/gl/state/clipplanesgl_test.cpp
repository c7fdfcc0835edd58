#include "nbx/gl/state/clipplanesgl.h"

#include "support/glfixture.h"

#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/translation.h>

using namespace NBX;

namespace {

class ClipPlanesGLTest : public GLFixture {
protected:
    /// The middle line of the picture, a letter for each eight pixels: whether the box is seen there.
    std::string columns() {
        const SO<Image> image = draw();
        std::string result;
        for (int x = 4; x < 64; x += 8)
            result += pixel(image, x, 32)[0] ? '#' : '.';
        return result;
    }
    static unsigned active() {
        unsigned count = 0;
        for (unsigned i = 0; i < ClipPlane::maxPlanes; ++i)
            count += glIsEnabled(GL_CLIP_PLANE0 + i) == GL_TRUE;
        return count;
    }
    static SO<ClipPlane> rightOf(double x) { return new ClipPlane({1, 0, 0}, -x); }
    static SO<ClipPlane> leftOf(double x) { return new ClipPlane({-1, 0, 0}, x); }
    SO<Box> box{new Box(Bounds({-2, -2, -0.5}, {2, 2, 0.5}))};
};

} // namespace

TEST_F(ClipPlanesGLTest, WhatLiesBehindAPlaneIsCutAway) {
    root->append(rightOf(-0.5).get());
    root->append(box.get());
    EXPECT_EQ("..######", columns());
    EXPECT_EQ(0U, active());
}

TEST_F(ClipPlanesGLTest, AllPlanesHoldTogether) {
    root->append(rightOf(-0.5).get());
    root->append(leftOf(0.25).get());
    root->append(box.get());
    EXPECT_EQ("..###...", columns());
}

TEST_F(ClipPlanesGLTest, APlaneIsInTheFrameInWhichItIsPushed) {
    root->append(new Translation({0.5, 0, 0}));
    root->append(rightOf(-0.5).get());
    root->append(new Translation({1.0, 0, 0}));
    root->append(box.get());
    EXPECT_EQ("....####", columns());
}

TEST_F(ClipPlanesGLTest, APlaneMayBeMovedBetweenItsUses) {
    const SO<ClipPlane> plane = rightOf(0.0);
    for (const unsigned cut : {1U, 3U, 6U}) {
        plane->setPlane({1, 0, 0}, 1.0 - cut / 4.0);
        engine->push(plane.get());
        GLdouble equation[4];
        glGetClipPlane(GL_CLIP_PLANE0, equation);
        EXPECT_EQ(1.0 - cut / 4.0, equation[3]);
        engine->pop(plane.get());
    }
}

TEST_F(ClipPlanesGLTest, ADisabledPlaneCutsNothing) {
    const SO<ClipPlane> plane = rightOf(-0.5);
    plane->setEnableState(false);
    root->append(plane.get());
    root->append(leftOf(0.5).get());
    root->append(box.get());
    EXPECT_EQ("######..", columns());
}

TEST_F(ClipPlanesGLTest, TheFirstSixHold) {
    std::vector<SO<ClipPlane>> planes;
    for (unsigned i = 0; i < 7; ++i) {
        planes.push_back(rightOf(-double(i)));
        engine->push(planes.back().get());
        EXPECT_EQ(std::min(i + 1, 6U), active());
    }
    EXPECT_EQ(1U, reports.size());
    reports.clear();
    for (unsigned i = 7; i-- > 0;) {
        engine->pop(planes[i].get());
        EXPECT_EQ(std::min(i, 6U), active());
    }
}
