// Formats of GDAL are made in memory, and go to the disk as a whole: GeoPackage keeps files beside its own
// while it writes.

#include <zmt/raster/gdal/vector/strokewriter.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

#include <cpl_string.h>
#include <ogrsf_frmts.h>

#include "memoryfile.h"
#include "raster/gdal/gdalsupport.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

/// Lines from one look at the user's wish to cancel to the next.
constexpr std::size_t s_linesAtOnce = 4096;

bool goesOn(NBX::Progress * progress, std::size_t done, std::size_t all) {
    return !progress || done % s_linesAtOnce != 0 ||
           progress->update(progress->totalValue() * double(done) / double(all));
}

struct FeatureDestroyer {
    void operator()(OGRFeature * feature) const { OGRFeature::DestroyFeature(feature); }
};

/// The features of a GDAL data set.
class StrokeLayer {
public:
    StrokeLayer(const std::string & path, const MemoryFile & file, bool isGeoJson,
                const GeoReference & reference)
        : path_(path) {
        GDALDriver * driver = GetGDALDriverManager()->GetDriverByName(isGeoJson ? "GeoJSON" : "GPKG");
        if (driver) dataset_.reset(driver->Create(file.path().c_str(), 0, 0, 0, GDT_Unknown, nullptr));
        if (!dataset_) fail();
        CPLStringList options;
        const bool isPlaced = reference.isGeoreferenced && !reference.wkt.empty();
        if (isGeoJson && isPlaced) options.AddString("RFC7946=YES");
        OGRSpatialReference system;
        if (isPlaced) system = spatialReference(reference.wkt);
        layer_ =
            dataset_->CreateLayer("strokes", isPlaced ? &system : nullptr, wkbLineString, options.List());
        OGRFieldDefn width("width", OFTReal);
        if (!layer_ || layer_->CreateField(&width) != OGRERR_NONE) fail();
        // One by one, each would be a transaction.
        dataset_->StartTransaction();
    }

    void add(const StrokeLine & line) {
        auto shape = std::make_unique<OGRLineString>();
        shape->setNumPoints(static_cast<int>(line.points.size()));
        for (std::size_t i = 0; i < line.points.size(); ++i)
            shape->setPoint(static_cast<int>(i), line.points[i].x, line.points[i].y);
        const std::unique_ptr<OGRFeature, FeatureDestroyer> feature(
            OGRFeature::CreateFeature(layer_->GetLayerDefn()));
        feature->SetField(0, line.points.front().width);
        feature->SetGeometryDirectly(shape.release());
        if (layer_->CreateFeature(feature.get()) != OGRERR_NONE) fail();
    }
    void finish() {
        dataset_->CommitTransaction();
        dataset_.reset();
        if (trap_.failed()) fail();
    }

private:
    [[noreturn]] void fail() const {
        throw NBX::IOException(L"the lines cannot be written", path_, 0, trap_.text());
    }

    GdalErrorTrap trap_;
    std::string path_;
    GdalDataset dataset_;
    OGRLayer * layer_ = nullptr;
};

bool writeFeatures(const std::string & path, const std::vector<StrokeLine> & lines, bool isGeoJson,
                   const GeoReference & reference, NBX::AtomicFileWriter & out, NBX::Progress * progress) {
    const MemoryFile file(isGeoJson ? "geojson" : "gpkg");
    StrokeLayer layer(path, file, isGeoJson, reference);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!goesOn(progress, i, lines.size())) return false;
        for (const StrokeLine & part : lines[i].partsOfOneWidth())
            if (part.hasLength()) layer.add(part);
    }
    layer.finish();
    out.write(file.bytes().data(), file.bytes().size());
    return true;
}

// --- SVG

/// Text that is written in large pieces.
class SvgText {
public:
    explicit SvgText(NBX::AtomicFileWriter & out) : out_(out) {}

    void add(const char * text) {
        text_ += text;
        if (text_.size() > s_piece) flush();
    }
    /// With at least one value in the format.
    template <class First, class... Others> void add(const char * format, First first, Others... others) {
        char text[256];
        std::snprintf(text, sizeof text, format, first, others...);
        add(text);
    }
    void flush() {
        out_.write(text_.data(), text_.size());
        text_.clear();
    }

private:
    static constexpr std::size_t s_piece = 1 << 20;

    NBX::AtomicFileWriter & out_;
    std::string text_;
};

/// From the map to the pixels of the paper, whose first line is the northern one.
class Paper {
public:
    explicit Paper(const StrokeWriter::Place & place)
        : place_(place), perX_((place.width - 1.0) / (place.extent.maxX - place.extent.minX)),
          perY_((place.height - 1.0) / (place.extent.maxY - place.extent.minY)) {}

    double x(const StrokeLine::Point & point) const { return (point.x - place_.extent.minX) * perX_ + 0.5; }
    double y(const StrokeLine::Point & point) const { return (place_.extent.maxY - point.y) * perY_ + 0.5; }
    double width(const StrokeLine::Point & point) const { return point.width * std::sqrt(perX_ * perY_); }

private:
    const StrokeWriter::Place & place_;
    double perX_, perY_;
};

void addPath(SvgText & text, const StrokeLine & line, const Paper & paper) {
    const auto & points = line.points;
    text.add("<path stroke-width=\"%.2f\" d=\"M%.2f %.2f", paper.width(points[0]), paper.x(points[0]),
             paper.y(points[0]));
    if (points.size() == 1) text.add("h0");
    for (std::size_t i = 1; i < points.size(); ++i)
        text.add("%s%.2f %.2f", i == 1 ? "L" : " ", paper.x(points[i]), paper.y(points[i]));
    text.add("\"/>\n");
}

bool writeSvg(const std::vector<StrokeLine> & lines, const StrokeWriter::Place & place,
              NBX::AtomicFileWriter & out, NBX::Progress * progress) {
    const Paper paper(place);
    SvgText text(out);
    text.add("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    text.add("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%u\" height=\"%u\" viewBox=\"0 0 %u %u\">\n",
             place.width, place.height, place.width, place.height);
    text.add("<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n");
    text.add("<g fill=\"none\" stroke=\"#000\" stroke-linecap=\"round\" stroke-linejoin=\"round\">\n");
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!goesOn(progress, i, lines.size())) return false;
        for (const StrokeLine & part : lines[i].partsOfOneWidth())
            addPath(text, part, paper);
    }
    text.add("</g>\n</svg>\n");
    text.flush();
    return true;
}

} // namespace

StrokeWriter::Format StrokeWriter::formatOf(const std::string & path) {
    std::string suffix = NBX::File::extensionName(path);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    if (suffix == "gpkg") return F_GeoPackage;
    if (suffix == "geojson" || suffix == "json") return F_GeoJson;
    return suffix == "svg" ? F_Svg : F_None;
}

bool StrokeWriter::write(const std::string & path, const std::vector<StrokeLine> & lines, const Place & place,
                         NBX::Progress * progress) {
    const Format format = formatOf(path);
    if (format == F_None)
        throw NBX::IOException(L"is no name of a vector file; choose one that ends in gpkg, geojson or svg",
                               path);
    NBX::AtomicFileWriter out(path);
    const bool isWritten =
        format == F_Svg ? writeSvg(lines, place, out, progress)
                        : writeFeatures(path, lines, format == F_GeoJson, place.reference, out, progress);
    if (isWritten) out.commit();
    return isWritten;
}

} // namespace ZMT::RASTER
