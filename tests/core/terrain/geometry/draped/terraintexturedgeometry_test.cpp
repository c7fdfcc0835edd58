#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>

#include <gtest/gtest.h>

#include <nbx/engine/engine.h>
#include <nbx/scene/node/scenenode.h>

using ZMT::CORE::TerrainTexturedGeometry;

namespace {

class SomeGeometry : public TerrainTexturedGeometry {
    NBX_TEMPLATE_CLASS(SomeGeometry, TerrainTexturedGeometry)
public:
    NBX::SO<NBX::SceneNode> geometry(const NBX::Bounds &) const override { return nullptr; }
    NBX::Bounds boundingBox() const override { return NBX::Bounds(); }
};

TEST(TerrainTexturedGeometry, SubclassesAreOneCategory) {
    const NBX::SO<SomeGeometry> geometry(new SomeGeometry);
    EXPECT_EQ(geometry->category(), TerrainTexturedGeometry::ClassNameNBX());
    EXPECT_TRUE(geometry->isEnabled());

    const NBX::SO<NBX::Engine> engine(new NBX::Engine);
    const NBX::AttributeScope outer(engine.get(), geometry.get());
    const NBX::AttributeScope inner(engine.get(), NBX::SO<SomeGeometry>(new SomeGeometry).get());
    EXPECT_EQ(engine->polyAttributeCount(TerrainTexturedGeometry::ClassNameNBX(), 3), 2U);
}

} // namespace
