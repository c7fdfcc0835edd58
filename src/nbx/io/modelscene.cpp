// Each mesh becomes one small node of what it looks like and its triangles, which stands below every node of
// the model that shows it. A node that mirrors turns triangles over, so its meshes stand there with their
// corners in the other order. The step from right-handed models to our left-handed scene is none of these: it
// changes the coordinates and not the picture.

#include "modelscene.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <set>
#include <sstream>

#include <nbx/container/sequence/array.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/view/tf.h>

namespace NBX {

namespace {

using Matrix = Matrix4x4Base<double>;
using Vector = Vector3Base<double>;
using Vectors = Array<Vector>;

bool isFinite(const Matrix & matrix) {
    return std::all_of(matrix.rows().begin(), matrix.rows().end(), [](double x) { return std::isfinite(x); });
}

bool mirrors(const Matrix & m) {
    const Vector x(m(0, 0), m(1, 0), m(2, 0)), y(m(0, 1), m(1, 1), m(2, 1)), z(m(0, 2), m(1, 2), m(2, 2));
    return x.cross(y).dot(z) < 0.0;
}

bool isFinite(const ModelAnswer::Mesh & mesh, std::uint32_t vertex) {
    const float * p = mesh.positions.data() + 3 * std::size_t{vertex};
    return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

/// The elements of a list of `components` numbers a vertex, without numbers that are none.
SO<Vectors> vectorsOf(const std::vector<float> & values, unsigned components) {
    SO<Vectors> result(new Vectors);
    result->reserve(static_cast<unsigned>(values.size() / components));
    for (std::size_t i = 0; i + components <= values.size(); i += components) {
        Vector v;
        for (unsigned c = 0; c < components; ++c)
            v[c] = std::isfinite(values[i + c]) ? double(values[i + c]) : 0.0;
        result->append(v);
    }
    return result;
}

/// How far a number may lie from the one that single precision has made of it.
double rounding(double number) {
    return std::abs(number) * std::numeric_limits<float>::epsilon() / 2.0;
}

/// By which factor a matrix stretches at most, about.
double stretch(const Matrix & m) {
    double most = 0.0;
    for (unsigned c = 0; c < 3; ++c)
        most = std::max(most, Vector(m(0, c), m(1, c), m(2, c)).length());
    return most;
}

/// Of a node of which the file had more than has arrived.
double lossOf(const ModelAnswer::Node & node) {
    if (node.isExact) return 0.0;
    return rounding(
        std::max({std::abs(node.matrix[3]), std::abs(node.matrix[7]), std::abs(node.matrix[11])}));
}

double lossOf(const Bounds & box) {
    double most = 0.0;
    for (unsigned c = 0; c < 3; ++c)
        most = std::max({most, std::abs(box.getLLF()[c]), std::abs(box.getURB()[c])});
    return rounding(most);
}

float share(float value) {
    return std::isfinite(value) ? std::clamp(value, 0.0F, 1.0F) : 1.0F;
}

SO<Array<Color>> colorsOf(const std::vector<float> & values) {
    SO<Array<Color>> result(new Array<Color>);
    result->reserve(static_cast<unsigned>(values.size() / 4));
    for (std::size_t i = 0; i + 4 <= values.size(); i += 4)
        result->append(
            Color(share(values[i]), share(values[i + 1]), share(values[i + 2]), share(values[i + 3])));
    return result;
}

void tellMany(std::uint64_t count, const char * what, Model & model) {
    if (count != 0) model.leftOut.push_back(std::to_string(count) + " " + what + " left out");
}

} // namespace

struct ModelScene::Part {
    SO<Vectors> vertices, normals, coordinates; ///< the last two may be null
    SO<Array<Color>> colors;                    ///< or null
    std::vector<unsigned> triangles;
    std::uint64_t unplaced = 0; ///< triangles that were left out
    Bounds box;

    explicit Part(const ModelAnswer::Mesh & mesh) : vertices(vectorsOf(mesh.positions, 3)) {
        if (!mesh.normals.empty()) normals = vectorsOf(mesh.normals, 3);
        if (!mesh.coordinates.empty()) coordinates = vectorsOf(mesh.coordinates, 2);
        if (!mesh.colors.empty()) colors = colorsOf(mesh.colors);
        for (std::size_t i = 0; i + 3 <= mesh.triangles.size(); i += 3) {
            const std::uint32_t * corner = mesh.triangles.data() + i;
            if (!isFinite(mesh, corner[0]) || !isFinite(mesh, corner[1]) || !isFinite(mesh, corner[2])) {
                ++unplaced;
                continue;
            }
            triangles.insert(triangles.end(), corner, corner + 3);
            for (int c = 0; c < 3; ++c)
                box += vertices->stl()[corner[c]];
        }
    }

    SO<PolygonSet> polygons(bool isMirrored) const {
        SO<Array<unsigned>> indices(new Array<unsigned>(triangles));
        for (std::size_t i = 0; isMirrored && i + 3 <= triangles.size(); i += 3)
            std::swap(indices->stl()[i + 1], indices->stl()[i + 2]);
        SO<PolygonSet> set(new PolygonSet(PolygonSet::PT_Triangles, vertices, indices));
        if (normals) set->setNormalIterator(normals);
        if (colors) set->setColorIterator(colors);
        if (coordinates) set->setTextureIterator(coordinates);
        return set;
    }
};

ModelScene::ModelScene(const ModelAnswer & answer, ModelTextures & textures)
    : answer_(answer), textures_(textures), parts_(answer.meshes.size()) {}

const ModelScene::Part & ModelScene::partOf(std::uint32_t mesh) {
    std::shared_ptr<const Part> & part = parts_[mesh];
    if (!part) part = std::make_shared<const Part>(answer_.meshes[mesh]);
    return *part;
}

SO<SceneThing> ModelScene::thingOf(std::uint32_t mesh, bool isMirrored) {
    SO<SceneThing> & thing = things_[{mesh, isMirrored}];
    if (thing) return thing;
    const ModelAnswer::Material & material = answer_.materials[answer_.meshes[mesh].material];
    const Color color(share(material.color[0]), share(material.color[1]), share(material.color[2]),
                      share(material.color[3]));
    const Color specular(share(material.specular[0]), share(material.specular[1]),
                         share(material.specular[2]));
    const float shininess = std::isfinite(material.shininess) ? material.shininess : 0.0F;
    thing = new SceneThing;
    thing->setObjectName(StringUtils::Utf8String2WString(answer_.meshes[mesh].name));
    thing->append(new ColorAttribute(color));
    thing->append(new ShapeMaterial(color, specular, double(std::clamp(shininess, 0.0F, 128.0F))));
    if (const SO<ImageTexture2DGL> texture = textures_.textureOf(material)) thing->append(texture.get());
    thing->append(partOf(mesh).polygons(isMirrored).get());
    return thing;
}

void ModelScene::addMeshes(const ModelAnswer::Node & node, SceneThing & thing, const Matrix & toScene,
                           bool isMirrored, double loss, Model & model) {
    for (const std::uint32_t mesh : node.meshes) {
        const Part & part = partOf(mesh);
        if (part.triangles.empty()) continue;
        model.vertices += part.vertices->size();
        model.triangles += part.triangles.size() / 3;
        if (model.triangles > maxTriangles)
            throw IOError(L"draws more than " + std::to_wstring(maxTriangles) +
                          L" triangles, counted at each place where they are shown; divide it into several "
                          L"models, or place it several times");
        model.box += part.box.transform(toScene);
        loss_ = std::max(loss_, loss + lossOf(part.box) * stretch(toScene));
        thing.append(thingOf(mesh, isMirrored).get());
    }
}

void ModelScene::build(const Matrix & toScene, Model & model) {
    struct Place {
        SO<SceneThing> thing; ///< null where it has no place
        Matrix toModel;
        double loss = 0.0;
    };
    model.scene = new SceneThing;
    model.scene->append(new Tf(toScene));
    std::vector<Place> places;
    places.reserve(answer_.nodes.size());
    for (const ModelAnswer::Node & node : answer_.nodes) {
        const Place outer = node.parent < 0 ? Place{model.scene, Matrix(), 0.0}
                                            : places[static_cast<std::size_t>(node.parent)];
        const Matrix matrix(node.matrix);
        const Matrix toModel = outer.toModel * matrix;
        if (!outer.thing || !isFinite(toModel)) {
            placeless_ += node.meshes.size();
            places.push_back({nullptr, Matrix(), 0.0});
            continue;
        }
        SO<SceneThing> thing(new SceneThing(outer.thing.get()));
        thing->setObjectName(StringUtils::Utf8String2WString(node.name));
        if (matrix != Matrix()) thing->append(new Tf(matrix));
        const double loss = outer.loss + lossOf(node) * stretch(toScene * outer.toModel);
        addMeshes(node, *thing, toScene * toModel, mirrors(toModel), loss, model);
        places.push_back({thing, toModel, loss});
    }
    std::uint64_t unplaced = 0;
    for (const auto & part : parts_)
        if (part) unplaced += part->unplaced;
    std::set<std::uint32_t> used;
    for (const auto & drawn : things_)
        used.insert(answer_.meshes[drawn.first.first].material);
    model.meshes = static_cast<unsigned>(answer_.meshes.size());
    model.materials = static_cast<unsigned>(used.size());
    model.textures = textures_.told();
    tellMany(placeless_, "meshes of nodes whose place is no number are", model);
    tellMany(unplaced, "triangles with corners that are no numbers are", model);
    tellLoss(model);
}

void ModelScene::tellLoss(Model & model) const {
    constexpr double tolerable = 0.001;
    if (!(loss_ > tolerable)) return;
    std::ostringstream metres;
    metres << std::setprecision(2) << loss_;
    model.leftOut.push_back("its coordinates are so large that they are off by up to " + metres.str() +
                            " m: they are numbers of single precision, or are read as such; bring them near "
                            "the origin, and tell the place by --at or a KML file");
}

} // namespace NBX
