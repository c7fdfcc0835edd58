#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>

#include <nbx/container/sequence/array.h>
#include <nbx/engine/raytracingtechnique.h>
#include <nbx/scene/shape/polygonset.h>

#include "columnfixture.h"
#include "support/collectedshapes.h"
#include "support/damagedstreams.h"
#include "support/roundtrip.h"

namespace {

using namespace NBX;
using Mesh = MappedVertexAttributeShapeGL;
using Data = MappedVertexAttributeDataGL;
using Types = VertexAttributeShapeGL;
using V = Vector3Base<double>;

/// Squares of the picture's height: the left and the right quarter of its width.
std::vector<V> corners() {
    return {{-1, -1, 0},  {-0.5, -1, 0}, {-0.5, 1, 0}, {-1, 1, 0},
            {0.5, -1, 0}, {1, -1, 0},    {1, 1, 0},    {0.5, 1, 0}};
}

SO<PolygonSet> quads() {
    return new PolygonSet(PolygonSet::PT_Quads, new Array<V>(corners()));
}

SO<PolygonSet> triangles(const std::vector<V> & vertices) {
    return new PolygonSet(PolygonSet::PT_Triangles, new Array<V>(vertices));
}

SO<Mesh> meshOf(const SO<PolygonSet> & set) {
    return new Mesh(set.get(), BufferObjectGL::UP_Static);
}

SO<Mesh> meshOf(Mesh::PrimitiveType type, const std::vector<float> & xy) {
    const SO<Data> data(new Data());
    data->setBuffer(Data::VERTEX_ID, new Data::Buffer(GL_FLOAT, 2, unsigned(xy.size() / 2), xy.data()));
    return new Mesh(type, data);
}

/// Twice the area of all triangles as seen from the front, where each is turned the right way.
double turnedArea(const Mesh & mesh) {
    double sum = 0.0;
    std::array<unsigned, 3> t;
    for (unsigned i = 0; i < mesh.triangles(); ++i)
        if (mesh.triangle(i, t)) {
            const V a = mesh.vertex(t[0]), b = mesh.vertex(t[1]), c = mesh.vertex(t[2]);
            const double area = (b - a).cross(c - a).z;
            EXPECT_GT(area, 0.0) << i;
            sum += area;
        }
    return sum;
}

TEST(MappedVertexAttributeShape, TakesTrianglesAsTheyAreAndOthersByIndices) {
    const SO<Mesh> plain = meshOf(triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 5, 5}}));
    EXPECT_FALSE(plain->indices());
    EXPECT_EQ(plain->data()->vertices(), 4U);
    EXPECT_EQ(plain->triangles(), 1U);
    const SO<Mesh> indexed = meshOf(quads());
    ASSERT_TRUE(indexed->indices());
    EXPECT_EQ(indexed->indices()->componentType(), unsigned(GL_UNSIGNED_SHORT));
    EXPECT_EQ(indexed->data()->vertices(), 8U);
    EXPECT_EQ(indexed->triangles(), 4U);
    EXPECT_DOUBLE_EQ(turnedArea(*indexed), 4.0);
    EXPECT_EQ(indexed->boundingBox(), Bounds(V(-1, -1, 0), V(1, 1, 0)));
}

TEST(MappedVertexAttributeShape, NumbersOfManyVerticesTakeThirtyTwoBits) {
    std::vector<V> vertices(65537);
    const SO<PolygonSet> set = triangles(vertices);
    set->setIndexIterator(new Array<unsigned>(std::vector<unsigned>{0, 1, 65536}));
    const SO<Mesh> mesh = meshOf(set);
    EXPECT_EQ(mesh->indices()->componentType(), unsigned(GL_UNSIGNED_INT));
    std::array<unsigned, 3> corner{};
    ASSERT_TRUE(mesh->triangle(0, corner));
    EXPECT_EQ(corner[2], 65536U);
}

TEST(MappedVertexAttributeShape, TakesAllAttributesOfASet) {
    const SO<PolygonSet> set = triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    set->setNormalIterator(new Array<V>(3, V(0, 0, 1)));
    set->setColorIterator(new Array<Color>(3, Color(1.0F, 0.5F, -2.0F, 0.2F)));
    set->setTextureIterator(new Array<V>(3, V(0.25, 0.75, 9)), 0);
    set->setTextureIterator(new Array<V>(3, V(3, 4, 0)), 2);
    const SO<Mesh> mesh = meshOf(set);
    EXPECT_TRUE(mesh->isDrawable());
    EXPECT_EQ(mesh->data()->buffer(Data::NORMAL_ID)->value(2, 2), 1.0);
    const auto colors = mesh->data()->buffer(Data::COLOR_ID);
    EXPECT_EQ(colors->componentType(), unsigned(GL_UNSIGNED_BYTE));
    EXPECT_EQ(colors->value(1, 0), 255.0);
    EXPECT_EQ(colors->value(1, 1), 128.0);
    EXPECT_EQ(colors->value(1, 2), 0.0);
    EXPECT_EQ(colors->value(1, 3), 51.0);
    EXPECT_EQ(mesh->data()->buffer(Data::TEXCOORD_ID(0))->components(), 2U);
    EXPECT_EQ(mesh->data()->buffer(Data::TEXCOORD_ID(0))->value(2, 1), 0.75);
    EXPECT_EQ(mesh->data()->buffer(Data::TEXCOORD_ID(2))->value(0, 1), 4.0);
    EXPECT_FALSE(mesh->data()->buffer(Data::TEXCOORD_ID(1)));
}

TEST(MappedVertexAttributeShape, LeavesOutWhatDoesNotFit) {
    RecordedReports reports;
    const SO<PolygonSet> set = triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    set->setColorIterator(new Array<Color>(2, Color::red));
    set->setIndexIterator(new Array<unsigned>(std::vector<unsigned>{0, 1, 2, 0, 1, 3}));
    const SO<Mesh> mesh = meshOf(set);
    EXPECT_EQ(mesh->triangles(), 1U);
    EXPECT_FALSE(mesh->data()->buffer(Data::COLOR_ID));
    EXPECT_EQ(reports.count(L"the vertex attributes are not as many as the vertices"), 1U);
    EXPECT_EQ(reports.count(L"a polygon has a corner beyond the vertices"), 1U);
    reports.clear();
    const SO<Mesh> nothing(new Mesh(nullptr, BufferObjectGL::UP_Static));
    EXPECT_EQ(reports.count(0, L"set", L"no polygon set"), 1U);
    EXPECT_EQ(nothing->triangles(), 0U);
    EXPECT_FALSE(nothing->boundingBox().isDefined());
    reports.clear();
    EXPECT_EQ(meshOf(new PolygonSet())->triangles(), 0U);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(MappedVertexAttributeShape, CoordinatesNearItsOriginMoveByLessThanAMillimetre) {
    // The largest distances of the documented ranges; farther out the steps are a millimetre and more.
    for (const double far : {1.0, 4000.1, 8191.3, 16383.7}) {
        const SO<Mesh> mesh = meshOf(triangles({{far, 0, -far}, {0, 0, 0}, {1, 1, 1}}));
        EXPECT_LT((mesh->vertex(0) - V(far, 0, -far)).length(), 0.001);
        EXPECT_LE(std::abs(mesh->vertex(0).x - far), 0.0005);
    }
}

TEST(MappedVertexAttributeShape, AllKindsOfPrimitivesAreTrianglesOfOneWinding) {
    const std::vector<float> zigzag = {0, 0, 1, 0, 0, 1, 1, 1, 0, 2, 1, 2};
    EXPECT_DOUBLE_EQ(turnedArea(*meshOf(Types::PT_TriangleStrip, zigzag)), 4.0);
    EXPECT_DOUBLE_EQ(turnedArea(*meshOf(Types::PT_QuadStrip, zigzag)), 4.0);
    const std::vector<float> around = {0, 0, 1, 0, 1, 1, 0, 1};
    for (const auto type : {Types::PT_TriangleFan, Types::PT_Polygon, Types::PT_Quads})
        EXPECT_DOUBLE_EQ(turnedArea(*meshOf(type, around)), 2.0) << type;
    EXPECT_EQ(meshOf(Types::PT_TriangleStrip, {0, 0, 1, 0})->triangles(), 0U);
    EXPECT_EQ(meshOf(Types::PT_QuadStrip, {0, 0, 1, 0, 0, 1})->triangles(), 0U);
    EXPECT_EQ(meshOf(Types::PT_Lines, zigzag)->triangles(), 0U);
    EXPECT_EQ(meshOf(Types::PT_Points, zigzag)->triangles(), 0U);
}

TEST(MappedVertexAttributeShape, WithoutIndicesItHasTheSameTriangles) {
    const SO<PolygonSet> set = quads();
    set->setColorIterator(new Array<Color>(8, Color::red));
    const SO<Mesh> indexed = meshOf(set), plain = indexed->withoutIndices();
    EXPECT_FALSE(plain->indices());
    EXPECT_EQ(plain->triangles(), 4U);
    EXPECT_EQ(plain->data()->vertices(), 12U);
    EXPECT_EQ(plain->data()->buffer(Data::COLOR_ID)->count(), 12U);
    EXPECT_EQ(plain->data()->buffer(Data::COLOR_ID)->value(11, 0), 255.0);
    EXPECT_DOUBLE_EQ(turnedArea(*plain), 4.0);
    EXPECT_EQ(plain->withoutIndices(), plain);
}

TEST(MappedVertexAttributeShape, BecomesPolygonsAndBack) {
    const SO<PolygonSet> set = quads();
    set->setColorIterator(new Array<Color>(8, Color::blue));
    set->setTextureIterator(new Array<V>(8, V(0.5, 0.25, 0)), 1);
    const SO<PolygonSet> back = meshOf(set)->newPolygonSet();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->triangles(), set->triangles());
    for (unsigned i = 0; i < set->triangles(); ++i) {
        std::array<unsigned, 3> a{}, b{};
        ASSERT_TRUE(set->triangle(i, a) && back->triangle(i, b));
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_EQ(set->newVertexIterator()->get(a[c]), back->newVertexIterator()->get(b[c]));
    }
    EXPECT_EQ(back->newColorIterator()->get(3), Color::blue);
    EXPECT_EQ(back->newTextureIterator(1)->get(7).y, 0.25);
    EXPECT_FALSE(back->newTextureIterator(0));
    EXPECT_FALSE(meshOf(Types::PT_Lines, {0, 0, 1, 1})->newPolygonSet());
    EXPECT_FALSE(SO<Mesh>(new Mesh())->newPolygonSet());
    // Indices without vertices.
    const std::uint16_t indices[] = {0, 1, 2};
    const SO<Mesh> hollow(
        new Mesh(Types::PT_Triangles, new Data(), new Data::Buffer(GL_UNSIGNED_SHORT, 1, 3, indices)));
    EXPECT_FALSE(hollow->newPolygonSet());
}

TEST(MappedVertexAttributeShape, IsSimplifiedToItsPolygons) {
    const SO<Engine> engine(new Engine());
    const SO<SceneThing> scene(new SceneThing());
    scene->append(meshOf(quads()).get());
    const SO<CollectedShapes::Technique> technique(new CollectedShapes::Technique());
    engine->evaluate(scene.get(), technique.get());
    ASSERT_EQ(technique->all<PolygonSet>().size(), 1U);
    EXPECT_EQ(technique->all<PolygonSet>().front()->triangles(), 4U);
}

TEST(MappedVertexAttributeShape, RaysHitBothSidesOfItsTriangles) {
    const SO<Engine> engine(new Engine());
    const SO<SceneThing> scene(new SceneThing());
    const SO<Mesh> mesh = meshOf(quads());
    scene->append(mesh.get());
    for (const double side : {5.0, -5.0}) {
        const SO<RayTracingTechnique> ray(
            new RayTracingTechnique(Ray(V(0.75, 0.3, side), V(0, 0, side > 0 ? -1 : 1))));
        ASSERT_TRUE(ray->trace(engine.get(), scene.get()));
        EXPECT_DOUBLE_EQ(ray->nearestHit().distance, 5.0);
        EXPECT_EQ(ray->nearestHit().normal, V(0, 0, side > 0 ? 1 : -1));
        EXPECT_EQ(ray->nearestHit().shape.get(), mesh.get());
    }
    const SO<RayTracingTechnique> between(new RayTracingTechnique(Ray(V(0, 0, 5), V(0, 0, -1))));
    EXPECT_FALSE(between->trace(engine.get(), scene.get()));
}

TEST(MappedVertexAttributeShape, IsStoredWithItsIndices) {
    const SO<Mesh> mesh = meshOf(quads()), read = roundTrip(mesh);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->triangles(), 4U);
    EXPECT_DOUBLE_EQ(turnedArea(*read), 4.0);
    EXPECT_EQ(read->boundingBox(), mesh->boundingBox());
    const SO<Mesh> fan = roundTrip(meshOf(Types::PT_TriangleFan, {0, 0, 1, 0, 1, 1}));
    EXPECT_EQ(fan->primitiveType(), Types::PT_TriangleFan);
    EXPECT_FALSE(fan->indices());
}

TEST(MappedVertexAttributeShape, IndicesBeyondTheVerticesAreNotRead) {
    const std::uint16_t indices[] = {0, 1, 8};
    const SO<Mesh> mesh(new Mesh(Types::PT_Triangles, meshOf(quads())->data(),
                                 new Data::Buffer(GL_UNSIGNED_SHORT, 1, 3, indices)));
    EXPECT_THROW(roundTrip(mesh), IOError);
}

TEST(MappedVertexAttributeShape, DamagedStreamsAreReadModestly) {
    expectModestReading(*meshOf(quads()), [](const SO<SharedObj> & object) {
        const auto mesh = soCast<Mesh>(object);
        if (!mesh) return;
        mesh->boundingBox();
        mesh->isDrawable();
        mesh->newPolygonSet();
        mesh->withoutIndices();
    });
}

TEST(MappedVertexAttributeShape, ItsBoxFollowsItsVertices) {
    const SO<Mesh> mesh = meshOf(triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
    EXPECT_EQ(mesh->boundingBox().getURB(), V(1, 1, 0));
    const auto positions = mesh->data()->buffer(Data::VERTEX_ID);
    static_cast<float *>(positions->mapPointer())[0] = 7.0F;
    positions->unmapPointer();
    EXPECT_EQ(mesh->boundingBox().getURB(), V(7, 1, 0));
}

class MappedVertexAttributeShapeGLTest : public ColumnFixture {};

TEST_F(MappedVertexAttributeShapeGLTest, IsDrawnWithIndicesAndWithout) {
    const SO<Mesh> mesh = meshOf(quads());
    root->append(mesh.get());
    EXPECT_EQ("ww....ww", columns());
    root->clear();
    root->append(mesh->withoutIndices().get());
    EXPECT_EQ("ww....ww", columns());
    root->clear();
    root->append(meshOf(Types::PT_TriangleStrip, {-1, -1, 0, -1, -1, 1, 0, 1}).get());
    EXPECT_EQ("wwww....", columns());
}

TEST_F(MappedVertexAttributeShapeGLTest, UsesColorsAndCoordinates) {
    const SO<PolygonSet> set = quads();
    std::vector<Color> colors(8, Color::red);
    std::fill(colors.begin() + 4, colors.end(), Color::blue);
    set->setColorIterator(new Array<Color>(colors));
    const SO<Mesh> colored = meshOf(set);
    root->append(colored.get());
    EXPECT_EQ("rr....bb", columns());
    root->clear();
    set->setColorIterator(nullptr);
    std::vector<V> coordinates(8, V(0.25, 0.5, 0));
    std::fill(coordinates.begin() + 4, coordinates.end(), V(0.75, 0.5, 0));
    set->setTextureIterator(new Array<V>(coordinates));
    root->append(meshOf(set).get());
    expectTexturedColumns("rr....gg");
}

TEST_F(MappedVertexAttributeShapeGLTest, LeavesTheStateOfGLAsItIsFound) {
    const SO<PolygonSet> set = quads();
    set->setColorIterator(new Array<Color>(8, Color::red));
    set->setNormalIterator(new Array<V>(8, V(0, 0, 1)));
    set->setTextureIterator(new Array<V>(8, V(0, 0, 1)));
    const SO<Mesh> mesh = meshOf(set);
    const std::vector<int> before = stateOfGL();
    engine->paint(mesh.get());
    engine->paint(mesh->withoutIndices().get());
    EXPECT_EQ(before, stateOfGL());
}

TEST_F(MappedVertexAttributeShapeGLTest, WhatCannotBeDrawnIsReportedOnce) {
    const SO<Mesh> mesh = meshOf(quads());
    mesh->data()->setBuffer(Data::COLOR_ID, new Data::Buffer(GL_FLOAT, 3, 7));
    root->append(mesh.get());
    EXPECT_EQ("........", columns());
    EXPECT_EQ("........", columns());
    EXPECT_EQ(reports.count(L"the mesh cannot be drawn"), 1U);
    reports.clear();
    mesh->data()->setBuffer(Data::COLOR_ID, nullptr);
    EXPECT_EQ("ww....ww", columns());
    const std::uint16_t indices[] = {0, 1, 8};
    root->append(
        new Mesh(Types::PT_Triangles, mesh->data(), new Data::Buffer(GL_UNSIGNED_SHORT, 1, 3, indices)));
    EXPECT_EQ("ww....ww", columns());
    EXPECT_EQ(reports.count(L"the mesh cannot be drawn"), 1U);
    reports.clear();
}

TEST_F(MappedVertexAttributeShapeGLTest, AnEmptyMeshIsNoFault) {
    root->append(new Mesh());
    EXPECT_EQ("........", columns());
}

} // namespace
