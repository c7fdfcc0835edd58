// A feature of the file becomes a record in the wanted system, is cut around the window that is read, and
// simplified. Files with an index of their own are asked for the window in their system; what they give is
// put into the order of its ids, so that neighbouring windows are drawn in one order. Others are read once,
// when they are opened, into a store with an index of ours.

#include <zmt/raster/gdal/vector/featurefile.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>
#include <unordered_set>

#include "featurelevels.h"
#include "featurestyles.h"
#include "featurewarper.h"
#include "layerreader.h"
#include "storedfeatures.h"

#include <ogr_feature.h>

#include "raster/gdal/gdalsupport.h"
#include "raster/gdal/sourcewindows.h"

#include <cpl_vsi.h>
#include <nbx/data/dataresource.h>
#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

double sizeOf(const GeoExtent & extent) {
    return (extent.maxX - extent.minX) * (extent.maxY - extent.minY);
}

/// Whether so much of `whole` is wanted that reading all in its order is the quickest.
bool isMost(const GeoExtent & part, const GeoExtent & whole, bool isOrdered) {
    return contains(part, whole) || (!isOrdered && 2.0 * sizeOf(common(part, whole)) > sizeOf(whole));
}

void count(FeatureFile::Losses & losses, unsigned lost) {
    losses.withoutGeometry += (lost & FeatureLoss::noGeometry) != 0;
    losses.notFinite += (lost & FeatureLoss::notFinite) != 0;
    losses.withoutPosition += (lost & FeatureLoss::noPosition) != 0;
    losses.tooFewPoints += (lost & FeatureLoss::tooFewPoints) != 0;
    losses.tooDeep += (lost & FeatureLoss::tooDeep) != 0;
}

} // namespace

/// Bytes of the caller's that are opened like a file.
class FeatureFile::FileInMemory {
public:
    FileInMemory(NBX::SO<NBX::DataResource> bytes, const std::string & name) : bytes_(std::move(bytes)) {
        static std::atomic<unsigned> files = 0;
        path_ = "/vsimem/zmt_features_" + std::to_string(files++) + "/" + NBX::File::fileName(name);
        VSILFILE * file = VSIFileFromMemBuffer(path_.c_str(), static_cast<GByte *>(bytes_->pointer()),
                                               bytes_->size(), FALSE);
        if (!file) throw NBX::InputException(L"cannot be opened; get it anew", name);
        VSIFCloseL(file);
    }
    ~FileInMemory() { VSIUnlink(path_.c_str()); }
    FileInMemory(const FileInMemory &) = delete;
    FileInMemory & operator=(const FileInMemory &) = delete;

    const std::string & path() const { return path_; }

private:
    NBX::SO<NBX::DataResource> bytes_;
    std::string path_;
};

struct FeatureFile::Impl {
    Impl(std::shared_ptr<const FileInMemory> file, std::unique_ptr<LayerReader> layer,
         const std::string & shownName, const std::string & wkt, const GeoExtent & area);

    void readAll();
    void readIndexed(const Query & query, const GeoExtent & box,
                     const std::function<bool(FeatureRecord &)> & show);
    bool take(OGRFeature & feature, const std::vector<FeatureWarper::Window> & windows,
              const std::vector<unsigned> & wanted, FeatureRecord & record);
    void note(std::int64_t id, unsigned lost);
    void readTrue(const Query & query, const GeoExtent & box,
                  const std::function<bool(FeatureRecord &)> & show);
    void makeLevel(unsigned level, NBX::Progress * progress = nullptr);

    std::string name;
    std::string layerName;
    std::shared_ptr<const FileInMemory> bytes; ///< null: a file
    std::unique_ptr<LayerReader> reader;       ///< null once all is stored
    std::unique_ptr<FeatureWarper> warper;
    std::unique_ptr<StoredFeatures> stored; ///< null: the file finds features by itself
    FeatureLevels levels;
    FeatureStyles styles{0.0};
    bool hasStyles = true;
    std::vector<unsigned> all; ///< numbers of the fields
    GeoReference reference;
    std::vector<VectorField> fields;
    std::uint64_t size = 0;
    std::optional<GeoExtent> extent;
    Kinds kinds;
    Losses losses;
    std::unordered_set<std::int64_t> lossy; ///< whose losses are counted
    FeatureRecord record;
    FeatureShapes cut, simple;
    /// For features that begin with points, lines, areas, so that their lists keep their memory.
    VectorFeature features[3];
};

FeatureFile::Impl::Impl(std::shared_ptr<const FileInMemory> file, std::unique_ptr<LayerReader> layer,
                        const std::string & shownName, const std::string & wkt, const GeoExtent & area)
    : name(shownName), layerName(layer->layerName()), bytes(std::move(file)), reader(std::move(layer)),
      fields(reader->fields()) {
    const std::optional<GeoExtent> known = reader->knownExtent();
    warper = std::make_unique<FeatureWarper>(reader->system(), wkt, area, known.value_or(everywhere), name);
    reference = describe(reader->system());
    reference.isGeoreferenced = !reference.wkt.empty();
    styles = FeatureStyles(reference.isGeographic ? 0.0 : reference.unit);
    hasStyles = reader->mayHaveStyles();
    all.resize(fields.size());
    std::iota(all.begin(), all.end(), 0U);
    if (reader->hasIndex()) {
        size = reader->size();
        kinds = reader->kinds();
        if (known) extent = warper->extentOf(*known);
    } else {
        readAll();
        reader.reset(); // some formats hold all features
        bytes.reset();
    }
    if (extent) levels.setExtent(isBounded(warper->area()) ? warper->area() : *extent);
    constexpr std::uint64_t many = 500'000;
    const std::uint64_t count = stored ? stored->size() : size;
    if (count <= many || !extent) return;
    NBX::Progress progress("simplifying features", static_cast<double>(count));
    makeLevel(0, &progress);
    progress.finish();
}

/// False for a feature of which nothing is to be seen.
bool FeatureFile::Impl::take(OGRFeature & feature, const std::vector<FeatureWarper::Window> & windows,
                             const std::vector<unsigned> & wanted, FeatureRecord & record) {
    const OGRGeometry * geometry = feature.GetGeometryRef();
    const unsigned lost =
        geometry ? warper->convert(*geometry, windows, record.shapes) : FeatureLoss::noGeometry;
    record.id = feature.GetFID();
    if (hasStyles) record.style = styles.of(feature);
    if (lost != 0) note(record.id, lost);
    if (!geometry || record.shapes.isEmpty()) return false;
    reader->values(feature, wanted, record.values);
    return true;
}

/// Features that come again are counted once, as far as that can be told.
void FeatureFile::Impl::note(std::int64_t id, unsigned lost) {
    constexpr std::size_t most = 1U << 20U;
    if (reader->hasIndex() && (lossy.size() >= most || !lossy.insert(id).second)) return;
    count(losses, lost);
}

void FeatureFile::Impl::readAll() {
    stored = std::make_unique<StoredFeatures>(name);
    kinds = {};
    const std::optional<std::uint64_t> known = reader->knownSize();
    const double total = std::max(1.0, static_cast<double>(known.value_or(1)));
    NBX::Progress progress("reading features", total);
    reader->read(nullptr, all, [&](OGRFeature & next) {
        constexpr std::uint64_t often = 1024;
        if (size++ % often == 0 && !progress.update(known ? static_cast<double>(size) : 0.0))
            throw NBX::InputException(L"was not read to its end, as that was cancelled", name);
        if (!take(next, warper->windows(), all, record)) return true;
        if (record.id < 0) record.id = static_cast<std::int64_t>(size);
        if (!touches(*record.shapes.box(), warper->area())) return true;
        for (const FeatureShapes::Path & path : record.shapes.paths) {
            kinds.points |= path.kind == FeatureShapes::Kind::Points;
            kinds.lines |= path.kind == FeatureShapes::Kind::Line;
            kinds.areas |= path.kind == FeatureShapes::Kind::Outline;
        }
        stored->add(record);
        return true;
    });
    progress.finish();
    stored->finish();
    extent = stored->extent();
}

void FeatureFile::Impl::readIndexed(const Query & query, const GeoExtent & box,
                                    const std::function<bool(FeatureRecord &)> & show) {
    const std::vector<FeatureWarper::Window> windows = warper->windowsOf(box);
    const std::optional<GeoExtent> known = reader->knownExtent();
    const std::vector<GeoExtent> boxes = warper->readBoxes(windows, known);
    const bool isWhole = boxes.size() == 1 && known && isMost(boxes[0], *known, reader->isOrdered());
    if (isWhole || (boxes.size() == 1 && reader->isOrdered()))
        return reader->read(isWhole ? nullptr : &boxes[0], query.fields, [&](OGRFeature & next) {
            return !take(next, windows, query.fields, record) || show(record);
        });
    RecordStore found(name);
    std::vector<std::pair<std::int64_t, std::uint64_t>> places;
    for (const GeoExtent & part : boxes)
        reader->read(&part, query.fields, [&](OGRFeature & next) {
            if (take(next, windows, query.fields, record)) places.emplace_back(record.id, found.add(record));
            return true;
        });
    found.finish();
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end(),
                             [](const auto & a, const auto & b) { return a.first == b.first; }),
                 places.end());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(places.size());
    for (const auto & [id, offset] : places)
        offsets.push_back(offset);
    found.read(offsets, std::span(all).first(query.fields.size()), show);
}

/// From the true shapes.
void FeatureFile::Impl::readTrue(const Query & query, const GeoExtent & box,
                                 const std::function<bool(FeatureRecord &)> & show) {
    if (stored)
        stored->read(box, query.tolerance, query.fields, show);
    else
        readIndexed(query, box, show);
}

/// `progress` counts features; it may be null.
void FeatureFile::Impl::makeLevel(unsigned level, NBX::Progress * progress) {
    const double tolerance = levels.tolerance(level);
    auto features = std::make_unique<StoredFeatures>(name);
    std::uint64_t count = 0;
    const auto add = [&](FeatureRecord & next) {
        constexpr std::uint64_t often = 1024;
        if (progress && count++ % often == 0 && !progress->update(static_cast<double>(count)))
            throw NBX::InputException(L"was not read to its end, as that was cancelled", name);
        simplifyShapes(next.shapes, tolerance, simple);
        std::swap(next.shapes, simple);
        features->add(next);
        return true;
    };
    if (StoredFeatures * finer = levels.find(level))
        finer->read(everywhere, tolerance, all, add);
    else
        readTrue({everywhere, tolerance, all}, warper->area(), add);
    features->finish();
    levels.add(level, std::move(features));
}

FeatureFile::Layers FeatureFile::layers(const std::string & path, const std::string & wkt,
                                        const GeoExtent & area) {
    return layersOf(nullptr, path, path, wkt, area);
}

FeatureFile::Layers FeatureFile::layers(const NBX::SO<NBX::DataResource> & bytes, const std::string & name,
                                        const std::string & wkt, const GeoExtent & area) {
    const auto file = std::make_shared<const FileInMemory>(bytes, name);
    return layersOf(file, file->path(), name, wkt, area);
}

FeatureFile::Layers FeatureFile::layersOf(const std::shared_ptr<const FileInMemory> & file,
                                          const std::string & path, const std::string & name,
                                          const std::string & wkt, const GeoExtent & area) {
    Layers layers;
    LayerReader::forAll(path, name, [&](std::unique_ptr<LayerReader> reader) {
        layers.emplace_back(
            new FeatureFile(std::make_unique<Impl>(file, std::move(reader), name, wkt, area)));
    });
    return layers;
}

FeatureFile::FeatureFile(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

FeatureFile::FeatureFile(const std::string & path, const std::string & layer, const std::string & wkt,
                         const GeoExtent & area)
    : impl_(std::make_unique<Impl>(nullptr, std::make_unique<LayerReader>(path, path, layer), path, wkt,
                                   area)) {}

FeatureFile::FeatureFile(NBX::SO<NBX::DataResource> bytes, const std::string & name,
                         const std::string & layer, const std::string & wkt, const GeoExtent & area) {
    auto file = std::make_shared<const FileInMemory>(std::move(bytes), name);
    auto reader = std::make_unique<LayerReader>(file->path(), name, layer);
    impl_ = std::make_unique<Impl>(std::move(file), std::move(reader), name, wkt, area);
}

FeatureFile::~FeatureFile() = default;

const GeoReference & FeatureFile::reference() const {
    return impl_->reference;
}

const FeatureFile::Losses & FeatureFile::losses() const {
    return impl_->losses;
}

std::string FeatureFile::lossReport() const {
    std::string text;
    const auto add = [&](std::uint64_t features, const char * what) {
        if (features > 0) text.append(text.empty() ? "" : "; ").append(std::to_string(features)).append(what);
    };
    add(impl_->losses.withoutGeometry, " without geometry");
    add(impl_->losses.notFinite, " with coordinates that are no numbers");
    add(impl_->losses.withoutPosition, " with places that the coordinate system does not have");
    add(impl_->losses.tooFewPoints, " with lines or areas of too few points");
    add(impl_->losses.tooDeep, " with collections too deep in one another");
    return text.empty() ? "" : impl_->name + ": features are drawn in part or not at all: " + text;
}

const std::string & FeatureFile::name() const {
    return impl_->name;
}

const std::string & FeatureFile::layerName() const {
    return impl_->layerName;
}

const std::vector<VectorField> & FeatureFile::fields() const {
    return impl_->fields;
}

std::uint64_t FeatureFile::size() const {
    return impl_->size;
}

std::optional<GeoExtent> FeatureFile::extent() const {
    return impl_->extent;
}

FeatureSource::Kinds FeatureFile::kinds() const {
    return impl_->kinds;
}

void FeatureFile::read(const Query & query, const std::function<bool(const VectorFeature &)> & visit) const {
    Impl & impl = *impl_;
    const GeoExtent box = common(query.box, impl.warper->area());
    if (isEmpty(box)) return;
    const double room = std::max({box.maxX - box.minX, box.maxY - box.minY, 4.0 * query.tolerance});
    const GeoExtent around =
        room > 0.0 ? GeoExtent{box.minX - room, box.minY - room, box.maxX + room, box.maxY + room}
                   : everywhere;
    const std::optional<unsigned> level = impl.levels.levelOf(query.tolerance);
    if (level && impl.levels.isWanted(*level)) impl.makeLevel(*level);
    StoredFeatures * simplified = level ? impl.levels.find(*level) : nullptr;
    const double tolerance = query.tolerance - (simplified ? impl.levels.tolerance(*level) : 0.0);
    std::uint64_t positions = 0;
    const auto show = [&](FeatureRecord & record) {
        constexpr std::size_t few = 32;
        const FeatureShapes * shapes = &record.shapes;
        positions += shapes->positions.size();
        const GeoExtent own = *shapes->box();
        if (!touches(own, box)) return true;
        if (shapes->positions.size() > few && !contains(around, own)) {
            cutShapes(*shapes, around, impl.cut);
            shapes = &impl.cut;
        }
        if (tolerance > 0.0) {
            simplifyShapes(*shapes, tolerance, impl.simple);
            shapes = &impl.simple;
        }
        if (shapes->isEmpty()) return true;
        VectorFeature & feature = impl.features[static_cast<unsigned>(shapes->paths[0].kind)];
        shapes->copyTo(feature);
        feature.id = record.id;
        std::swap(feature.values, record.values);
        std::swap(feature.style, record.style);
        return visit(feature);
    };
    if (simplified)
        simplified->read(box, query.tolerance, query.fields, show);
    else
        impl.readTrue(query, box, show);
    if (level && impl.extent) impl.levels.note(*level, common(box, *impl.extent), query.tolerance, positions);
}

} // namespace ZMT::RASTER
