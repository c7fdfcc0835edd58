#include <zmt/core/texturedtriangles/cityassembly.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include <nbx/analysis/scenegraphanalyzer.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/shape/polygonsettool.h>
#include <nbx/scene/view/tf.h>

#include "modelnumber.h"

namespace ZMT::CORE {

namespace {

using Point = CityAssembly::Point;
using Matrix = CityAssembly::Matrix;

/// Clockwise for who looks from the end of axis `axis` to the origin; the axes are right-handed.
Matrix turned(unsigned axis, double degrees) {
    Point along;
    along[axis] = 1.0;
    return Matrix::rotation(along, -degrees * std::numbers::pi / 180.0);
}

/// From x to the east, y up, z to the north, to x to the east, y to the north, z up; and back.
Matrix exchanged() {
    return Matrix({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1});
}

/// From a model, turned as it stands, to geo coordinates.
Matrix toGeo(const CityAssembly::Place & place) {
    const auto & [at, east, north] = place.axes;
    const Matrix axes(
        {east.x, 0, north.x, at.x, 0, 1, 0, place.height, east.y, 0, north.y, at.y, 0, 0, 0, 1});
    return axes * place.orientation;
}

bool mirrors(const Matrix & m) {
    const Point x(m(0, 0), m(1, 0), m(2, 0)), y(m(0, 1), m(1, 1), m(2, 1)), z(m(0, 2), m(1, 2), m(2, 2));
    return x.cross(y).dot(z) < 0.0;
}

/// The model with its fronts turned backwards, which a mirror turns forwards again; normals need no turn.
NBX::SO<NBX::SceneThing> turnedOver(const NBX::SO<NBX::SceneThing> & model) {
    NBX::SO<NBX::SceneThing> flat(new NBX::SceneThing);
    flat->append(model.get());
    NBX::SceneGraphAnalyzer::flattenScene(flat.get());
    const auto turn = [](NBX::RenderObj * object) -> NBX::SO<NBX::RenderObj> {
        const auto * set = dynamic_cast<const NBX::PolygonSet *>(object);
        if (!set) return NBX::SO<NBX::RenderObj>(object);
        const NBX::SO<NBX::PolygonSet> turned = NBX::PolygonSetTool::invertOrientation(set);
        turned->setNormalIterator(set->newNormalIterator());
        return NBX::SO<NBX::RenderObj>(turned.get());
    };
    flat->rewrite(turn);
    for (unsigned i = 0; i < flat->objects(); ++i)
        if (auto * node = dynamic_cast<NBX::SceneThing *>(flat->object(i))) node->rewrite(turn);
    return flat;
}

} // namespace

Matrix CityAssembly::orientation(double heading, double tilt, double roll, const Point & scale) {
    return exchanged() * turned(2, heading) * turned(0, tilt) * turned(1, roll) * exchanged() *
           Matrix::scaling(scale);
}

CityAssembly::Place CityAssembly::onMap(double x, double y, double height, double unit) {
    return {{{x, y}, {1.0 / unit, 0.0}, {0.0, 1.0 / unit}}, height, Matrix()};
}

void CityAssembly::add(const NBX::SO<NBX::SceneThing> & model, unsigned triangles, const std::string & name,
                       const std::string & source, const Place & place) {
    NBX_CHECK(model, L"no model");
    if (!model) return;
    const Matrix matrix = toGeo(place);
    const NBX::Bounds box = model->boundingBox(nullptr).transform(matrix);
    const auto first =
        static_cast<unsigned>(std::min<std::uint64_t>(triangles_, std::numeric_limits<unsigned>::max()));
    entries_.push_back(
        {model, matrix, box, {name, source, matrix * Point(), {}, first, triangles, place.ground}});
    triangles_ += triangles;
}

Point CityAssembly::origin() const {
    NBX::Bounds box;
    for (const Entry & entry : entries_)
        box += entry.box;
    if (!box.isDefined()) return {};
    const Point middle = box.center();
    return {std::round(middle.x), std::round(middle.y), std::round(middle.z)};
}

NBX::SO<NBX::SceneThing> CityAssembly::scene(const Point & origin) const {
    const NBX::SO<NBX::SceneThing> all(new NBX::SceneThing);
    for (const Entry & entry : entries_) {
        const NBX::SO<NBX::SceneThing> placed(new NBX::SceneThing(all.get()));
        placed->append(new ModelNumber(unsigned(&entry - entries_.data())));
        placed->append(new NBX::Tf(Matrix::translation(-origin) * entry.toGeo));
        placed->append((mirrors(entry.toGeo) ? turnedOver(entry.model) : entry.model).get());
    }
    return all;
}

std::vector<CityModels::Model> CityAssembly::table(const Point & origin) const {
    std::vector<CityModels::Model> rows;
    for (const Entry & entry : entries_) {
        rows.push_back(entry.row);
        if (entry.box.isDefined())
            rows.back().box = NBX::Bounds(entry.box.getLLF() - origin, entry.box.getURB() - origin);
    }
    return rows;
}

} // namespace ZMT::CORE
