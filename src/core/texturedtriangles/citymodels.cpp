// A scene that somebody sends must not make us read what stands elsewhere: the names of paging files are
// bare, and mean files beside the scene, on a disk as on a server.

#include <zmt/core/texturedtriangles/citymodels.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <limits>
#include <optional>
#include <set>
#include <unordered_set>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/data/objectloader.h>
#include <nbx/data/objectsaver.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/math/triangletest.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>

#include "core/terrain/frame/storedreference.h"
#include "modellift.h"
#include "modelnumber.h"

namespace ZMT::CORE {

namespace {

using NBX::StringUtils;
using Trees = std::vector<NBX::SO<TexturedTriangleTree>>;

/// Scenes keep geometry alone, and root atlases.
constexpr std::size_t s_magicBytes = 8; ///< of a stored object, and no fewer
constexpr std::uint64_t s_largestScene = std::uint64_t{1} << 30U;

std::string utf8(const std::wstring & text) {
    return StringUtils::WString2Utf8String(text);
}

std::wstring wide(const std::string & text) {
    return StringUtils::Utf8String2WString(text);
}

bool isBareName(const std::string & name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\\:?#\0", 6)) == std::string::npos;
}

/// The file of that name beside `locator`; what follows a URL's path, such as a signature, is kept.
std::string beside(const std::string & locator, const std::string & name) {
    const std::size_t end = NBX::Locator(locator).isFile()
                                ? locator.size()
                                : std::min(locator.find_first_of("?#"), locator.size());
    const std::size_t slash = locator.rfind('/', end);
    const std::string folder = slash == std::string::npos ? "" : locator.substr(0, slash + 1);
    return folder + name + locator.substr(end);
}

/// One of the paging files of some trees.
struct PagingName {
    NBX::SO<TexturedTriangleTree> tree;
    int layer;
    std::wstring name;
};

/// What `nameOf` makes of the present names.
template <class NameOf> std::vector<PagingName> pagingNames(const Trees & trees, NameOf nameOf) {
    std::vector<PagingName> names;
    for (const NBX::SO<TexturedTriangleTree> & tree : trees)
        for (int layer = 0; layer < tree->getNumberOfLayers(); ++layer)
            names.push_back({tree, layer, nameOf(tree->getPagingFile(layer))});
    return names;
}

std::vector<PagingName> presentNames(const Trees & trees) {
    return pagingNames(trees, [](const std::wstring & name) { return name; });
}

void apply(const std::vector<PagingName> & names) {
    for (const PagingName & name : names)
        name.tree->changePagingFileName(name.name, name.layer);
}

/// Other names while it lives.
class ChangedPagingNames {
public:
    ChangedPagingNames(const Trees & trees, const std::vector<PagingName> & names)
        : before_(presentNames(trees)) {
        apply(names);
    }
    ~ChangedPagingNames() { apply(before_); }
    ChangedPagingNames(const ChangedPagingNames &) = delete;
    ChangedPagingNames & operator=(const ChangedPagingNames &) = delete;

private:
    const std::vector<PagingName> before_;
};

/// Models stand at their own heights while it lives.
class LoweredModels {
public:
    LoweredModels(ModelLift * lift, const std::vector<double> & lifts, double rest)
        : lift_(lift), lifts_(lifts), rest_(rest) {
        if (lift_) lift_->set({}, 0.0);
    }
    ~LoweredModels() {
        if (lift_) lift_->set(lifts_, rest_);
    }
    LoweredModels(const LoweredModels &) = delete;
    LoweredModels & operator=(const LoweredModels &) = delete;

private:
    ModelLift * lift_;
    const std::vector<double> & lifts_;
    const double rest_;
};

/// What the first triangle of a mesh that the ray hits says of its model. Nothing where the mesh does not
/// tell models.
std::optional<double> numberHit(const NBX::MappedVertexAttributeShapeGL & mesh, const NBX::Ray & ray) {
    const auto numbers = mesh.data() ? mesh.data()->buffer(ModelNumber::bufferName()) : nullptr;
    if (!numbers || numbers->count() != mesh.data()->vertices()) return std::nullopt;
    double nearest = std::numeric_limits<double>::infinity(), number = ModelNumber::none;
    std::array<unsigned, 3> corners{};
    for (unsigned i = 0; i < mesh.triangles(); ++i) {
        if (!mesh.triangle(i, corners)) continue;
        double distance = 0.0;
        const auto & [a, b, c] = corners;
        const bool isHit =
            NBX::meetsTriangle(ray.getOrigin(), ray.getDirection(), mesh.vertex(a), mesh.vertex(b),
                               mesh.vertex(c), distance, [](bool is) { return is; });
        if (!isHit || !(distance < nearest)) continue;
        nearest = distance;
        number = numbers->value(a, 0);
    }
    return number;
}

[[noreturn]] void throwNoCity(const std::string & locator) {
    throw NBX::InputException(L"is no city, or damaged; build it anew", locator);
}

/// Throws for what is no stored object at all, each for what it is.
void checkFile(const std::string & path) {
    NBX::File::checkReadable(path);
    if (!NBX::File::isFile(path)) return; // the bytes of a pipe come once
    std::array<char, s_magicBytes> start{};
    std::ifstream(path, std::ios::binary).read(start.data(), start.size());
    if (!NBX::ObjectStreamReader::hasMagic(start.data(), start.size()))
        throw NBX::InputException(L"is no city; name a file that was built as one", path);
}

} // namespace

CityModels::CityModels() = default;
CityModels::~CityModels() = default;

CityModels::CityModels(const NBX::SO<NBX::SceneThing> & scene, const Point & origin,
                       const RASTER::GeoReference & reference, std::vector<Model> models)
    : scene_(scene), origin_(origin), reference_(reference), models_(std::move(models)) {
    NBX_CHECK(scene, L"no scene");
}

Trees CityModels::trees() const {
    // Not only below nodes with a list of objects: a tree that is drawn from a level of detail, or from any
    // other object that holds some, reads its files as well.
    Trees found;
    std::unordered_set<const NBX::Visitable *> seen;
    std::vector<NBX::Visitable *> waiting{scene_.get()}, children;
    while (!waiting.empty()) {
        NBX::Visitable * object = waiting.back();
        waiting.pop_back();
        if (!object || !seen.insert(object).second) continue;
        if (auto * tree = dynamic_cast<TexturedTriangleTree *>(object)) found.push_back(tree);
        children.clear();
        object->acceptChildren(children);
        waiting.insert(waiting.end(), children.rbegin(), children.rend());
    }
    return found;
}

std::vector<std::string> CityModels::pagingFiles() const {
    std::set<std::string> names;
    for (const PagingName & file : presentNames(trees()))
        names.insert(utf8(file.name));
    return {names.begin(), names.end()};
}

NBX::Bounds CityModels::boundingBox() const {
    return scene_ ? scene_->boundingBox(nullptr) : NBX::Bounds();
}

void CityModels::lift(std::vector<double> ofModels, double rest) {
    lifts_ = std::move(ofModels);
    restLift_ = rest;
    if (!lift_) lift_ = std::make_unique<ModelLift>(trees());
    lift_->set(lifts_, restLift_);
}

double CityModels::liftOf(const Model * model) const {
    const auto number = model ? std::size_t(model - models_.data()) : lifts_.size();
    return number < lifts_.size() ? lifts_[number] : restLift_;
}

const CityModels::Model * CityModels::modelAt(const Point & point, double tolerance) const {
    const Model * best = nullptr;
    double least = 0.0;
    for (const Model & model : models_) {
        if (!model.box.isDefined()) continue;
        const NBX::Bounds box = model.box.expand(tolerance);
        if (!box.containsPoint(point - Point(0.0, liftOf(&model), 0.0))) continue;
        const Point size = box.getURB() - box.getLLF();
        const double volume = size.x * size.y * size.z;
        if (best && volume >= least) continue;
        best = &model;
        least = volume;
    }
    return best;
}

CityModels::Hit CityModels::modelHit(const NBX::Shape & shape, const NBX::Ray & ray, const Point & point,
                                     double tolerance) const {
    const auto * mesh = dynamic_cast<const NBX::MappedVertexAttributeShapeGL *>(&shape);
    const std::optional<double> number = mesh ? numberHit(*mesh, ray) : std::nullopt;
    // Without numbers all is lifted like what belongs to no model.
    if (!number) return {modelAt(point, tolerance), restLift_};
    const bool isKnown = *number >= 0.0 && *number < double(models_.size());
    const Model * model = isKnown ? &models_[std::size_t(*number)] : nullptr;
    return {model, liftOf(model)};
}

bool CityModels::isFile(const std::string & path) {
    return NBX::ObjectLoader::classOf(path) == ClassNameNBX();
}

NBX::SO<CityModels> CityModels::load(const std::string & locator) {
    if (NBX::Locator(locator).isOnWebServer()) {
        std::wstring problem;
        const NBX::SO<AsyncFile> file = AsyncFile::create(wide(locator), false, &problem);
        if (!file) throw NBX::InputException(problem, locator);
        return read(fetch(*file), locator);
    }
    checkFile(NBX::Locator(locator).text());
    try {
        const auto city =
            NBX::soCast<CityModels>(NBX::ObjectLoader::readFile(locator, ClassNameNBX(), false));
        if (!city) throwNoCity(locator);
        city->findPagingFiles(locator);
        return city;
    } catch (const NBX::IOError & damage) {
        throw NBX::InputException(damage.message(), locator);
    }
}

NBX::SO<NBX::DataResource> CityModels::fetch(AsyncFile & file) {
    const std::string locator = utf8(file.url());
    if (file.size() > s_largestScene)
        throw NBX::InputException(L"is too large for the scene of a city", locator);
    std::wstring problem;
    const NBX::SO<NBX::DataResource> bytes = file.readNow(0, file.size(), &problem);
    if (!bytes) throw NBX::InputException(problem, locator);
    return bytes;
}

NBX::SO<CityModels> CityModels::read(const NBX::SO<NBX::DataResource> & bytes, const std::string & locator) {
    if (!NBX::ObjectStreamReader::hasMagic(bytes->pointer(), bytes->size())) throwNoCity(locator);
    try {
        const auto city =
            NBX::soCast<CityModels>(NBX::ObjectStreamReader(bytes->pointer(), bytes->size()).read());
        if (!city) throwNoCity(locator);
        city->findPagingFiles(locator);
        return city;
    } catch (const NBX::IOError & damage) {
        throw NBX::InputException(damage.message(), locator);
    }
}

/// Those beside `locator`, in the place of their bare names.
void CityModels::findPagingFiles(const std::string & locator) const {
    apply(pagingNames(trees(), [&](const std::wstring & name) {
        if (!isBareName(utf8(name)))
            throw NBX::InputException(L"names a paging file that does not stand beside it; build it anew",
                                      locator);
        return wide(beside(NBX::Locator(locator).text(), utf8(name)));
    }));
}

void CityModels::write(const std::string & path) const {
    const std::string folder = NBX::File::pathName(NBX::File::absolutePath(path));
    const Trees trees = this->trees();
    const std::vector<PagingName> names = pagingNames(trees, [&](const std::wstring & name) {
        const std::string file = NBX::File::fileName(utf8(name));
        if (NBX::File::pathName(NBX::File::absolutePath(utf8(name))) != folder || !isBareName(file))
            throw NBX::InputException(L"a paging file stands elsewhere: " + name, path);
        return wide(file);
    });
    const ChangedPagingNames changed(trees, names);
    const LoweredModels lowered(lift_.get(), lifts_, restLift_);
    NBX::ObjectSaver::write(this, path);
}

void CityModels::Model::serialize(NBX::SerializationManager & m) {
    serializeText(m, "name", name);
    serializeText(m, "source", source);
    m.attribute("place", place);
    m.attribute("box", box);
    m.attribute("firstTriangle", firstTriangle);
    m.attribute("triangles", triangles);
    if (!m.attribute("ground", ground) && m.isReading()) ground = unknown;
}

void CityModels::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, static_cast<NBX::SharedObj *>(this));
    m.attribute("scene", scene_);
    m.attribute("origin", origin_);
    serializeReference(m, reference_);
    NBX::serializeValue(m, "models", models_);
    if (m.isReading() && !scene_) throw NBX::IOError(L"stored city has no scene");
}

NBX_STORED_CLASS_IMPL(CityModels, NBX::SharedObj)

} // namespace ZMT::CORE
