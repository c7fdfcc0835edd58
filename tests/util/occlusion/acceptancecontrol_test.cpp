#include "util/occlusion/acceptancecontrol.h"

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>
#include <nbx/scene/attribute/colorattribute.h>

namespace {

using namespace NBX;
using ZMT::UTIL::AcceptanceControl;

TEST(AcceptanceControl, TurnsACategoryOffAndOn) {
    const SO<Engine> engine(new Engine);
    const SO<ColorAttribute> color(new ColorAttribute);
    const ID category = ColorAttribute::ClassNameNBX();
    const SO<AcceptanceControl> off(new AcceptanceControl(category, false));
    const SO<AcceptanceControl> on(new AcceptanceControl(category, true));
    engine->push(color.get());
    engine->paint(off.get());
    EXPECT_EQ(nullptr, engine->getAttribute(category));
    engine->paint(off.get());
    engine->paint(on.get());
    EXPECT_EQ(nullptr, engine->getAttribute(category));
    engine->paint(on.get());
    EXPECT_EQ(color.get(), engine->getAttribute(category));
    engine->pop(color.get());
    EXPECT_FALSE(on->boundingBox().isDefined());
}

} // namespace
