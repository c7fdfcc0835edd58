// What the library that reads files of vectors says and gives, brought into our words and types.

#include "layerreader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <ogrsf_frmts.h>

#include "raster/gdal/gdalsupport.h"

#include <cpl_conv.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::RASTER {

namespace {

/// Bytes of a text that are kept; nobody reads longer ones on a map.
constexpr std::size_t s_longestText = 1024;

const std::wstring s_noVectors = L"is no file of points, lines or areas that can be read, or is damaged; use "
                                 L"a format such as GeoPackage or "
                                 L"GeoJSON, or get the file anew";

/// Says of what is no file of vectors whether it is a raster.
[[noreturn]] void throwNoVectors(const std::string & path, const std::string & name,
                                 const std::wstring & why) {
    const GdalErrorTrap trap;
    if (GdalDataset(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY)))
        throw NBX::InputException(
            L"holds an image or heights, and neither points, lines nor areas; choose a file "
            L"such as GeoPackage or GeoJSON",
            name);
    throw NBX::InputException(s_noVectors, name, 0, why);
}

GdalDataset openVectors(const std::string & path, const std::string & name) {
    GdalErrorTrap trap;
    GdalDataset dataset;
    const bool isInMemory = path != name; // where no file system knows better what is wrong
    try {
        if (isInMemory)
            dataset.reset(
                GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR));
        else
            dataset = openDataset(path, GDAL_OF_VECTOR, s_noVectors, trap);
    } catch (const NBX::FileNotFoundException &) {
        throw;
    } catch (const NBX::InputException & exception) {
        if (exception.message() != s_noVectors) throw;
        throwNoVectors(path, name, trap.text());
    }
    if (!dataset) throwNoVectors(path, name, trap.text());
    if (trap.failed()) throw NBX::InputException(L"is damaged; get the file anew", name, 0, trap.text());
    if (dataset->GetLayerCount() == 0) throwNoVectors(path, name, L"");
    return dataset;
}

/// The points of routes and tracks once more.
bool isRepeated(GDALDataset & dataset, const OGRLayer & layer) {
    return std::strcmp(dataset.GetDriverName(), "GPX") == 0 &&
           (std::strcmp(const_cast<OGRLayer &>(layer).GetName(), "route_points") == 0 ||
            std::strcmp(const_cast<OGRLayer &>(layer).GetName(), "track_points") == 0);
}

std::vector<std::string> layerNames(GDALDataset & dataset) {
    std::vector<std::string> names;
    for (OGRLayer * layer : dataset.GetLayers())
        if (!isRepeated(dataset, *layer)) names.emplace_back(layer->GetName());
    return names;
}

OGRLayer * chosenLayer(GDALDataset & dataset, const std::string & name, const std::string & wanted) {
    if (!wanted.empty()) {
        if (OGRLayer * layer = dataset.GetLayerByName(wanted.c_str())) return layer;
        std::string names;
        for (const std::string & one : layerNames(dataset))
            names.append(names.empty() ? "" : ", ").append(one);
        throw NBX::InputException(L"has no layer \"" + NBX::StringUtils::Utf8String2WString(wanted) +
                                      L"\"; choose one of those it has: " +
                                      NBX::StringUtils::Utf8String2WString(names.substr(0, s_longestText)),
                                  name);
    }
    if (dataset.GetLayerCount() > 1)
        for (OGRLayer * layer : dataset.GetLayers())
            if (!isRepeated(dataset, *layer) && layer->GetGeomType() != wkbNone &&
                layer->GetFeatureCount() > 0)
                return layer;
    return dataset.GetLayer(0);
}

VectorField::Type typeOf(const OGRFieldDefn & field) {
    switch (field.GetType()) {
    case OFTInteger:
    case OFTInteger64:
        return VectorField::Type::Integer;
    case OFTReal:
        return VectorField::Type::Real;
    default:
        return VectorField::Type::Text;
    }
}

/// In UTF-8, and no longer than anybody reads.
void setText(FieldValue & value, const char * text) {
    if (!std::holds_alternative<std::string>(value)) value = std::string();
    auto & result = std::get<std::string>(value);
    std::size_t size = 0;
    unsigned char bits = 0;
    for (; size < s_longestText && text[size]; ++size)
        bits |= static_cast<unsigned char>(text[size]);
    result.assign(text, size);
    const bool isAscii = bits < 0x80U;
    if (isAscii) return;
    if (size == s_longestText)
        while (!result.empty() && (static_cast<unsigned char>(text[result.size()]) & 0xC0U) == 0x80U)
            result.pop_back();
    if (CPLIsUTF8(result.c_str(), -1)) return;
    char * recoded = CPLRecode(result.c_str(), CPL_ENC_ISO8859_1, CPL_ENC_UTF8);
    result = recoded;
    CPLFree(recoded);
}

std::string isoDate(const OGRFeature & feature, int field, OGRFieldType type) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, zone = 0;
    float second = 0.0F;
    if (!feature.GetFieldAsDateTime(field, &year, &month, &day, &hour, &minute, &second, &zone)) return "";
    char date[32] = "", time[32] = "", offset[16] = "";
    if (type != OFTTime) std::snprintf(date, sizeof date, "%04d-%02d-%02d", year, month, day);
    if (type == OFTDate) return date;
    const bool isWhole = second == std::floor(second);
    std::snprintf(time, sizeof time, isWhole ? "%02d:%02d:%02.0f" : "%02d:%02d:%06.3f", hour, minute, second);
    constexpr int utc = 100; // and quarters of an hour from there
    if (zone == utc) std::snprintf(offset, sizeof offset, "Z");
    if (const int quarters = zone - utc; zone > 1 && quarters != 0)
        std::snprintf(offset, sizeof offset, "%c%02d:%02d", quarters < 0 ? '-' : '+', std::abs(quarters) / 4,
                      std::abs(quarters) % 4 * 15);
    return std::string(date) + (type == OFTDateTime ? "T" : "") + time + offset;
}

/// The usual types are taken as they lie in the feature.
void setValue(const OGRFeature & feature, int field, OGRFieldType type, FieldValue & value) {
    const OGRField & raw = *feature.GetRawFieldRef(field);
    if (!feature.IsFieldSetAndNotNullUnsafe(field)) {
        value = std::monostate();
    } else if (type == OFTString) {
        setText(value, raw.String ? raw.String : "");
    } else if (type == OFTInteger) {
        value = std::int64_t(raw.Integer);
    } else if (type == OFTInteger64) {
        value = std::int64_t(raw.Integer64);
    } else if (type == OFTReal) {
        if (std::isfinite(raw.Real))
            value = raw.Real;
        else
            value = std::monostate();
    } else if (type == OFTDate || type == OFTTime || type == OFTDateTime) {
        value = isoDate(feature, field, type);
    } else if (type == OFTBinary) {
        value = std::monostate();
    } else {
        setText(value, const_cast<OGRFeature &>(feature).GetFieldAsString(field));
    }
}

/// 0 for what is no file.
std::uintmax_t fileBytes(const std::string & path) {
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(path, error);
    return error ? 0 : bytes;
}

} // namespace

struct LayerReader::Impl {
    std::string name, path;
    std::uintmax_t bytes = 0; ///< of the file when it was opened; 0 where it is none
    GdalDataset dataset;
    OGRLayer * layer = nullptr;
    std::vector<OGRFieldType> types; ///< of all fields
    std::vector<unsigned> fields;    ///< that are read
    bool areAllRead = true;

    void setFields(const std::vector<unsigned> & wanted);
};

/// What nobody wants need not be read.
void LayerReader::Impl::setFields(const std::vector<unsigned> & wanted) {
    if (!layer->TestCapability(OLCIgnoreFields) || (!areAllRead && wanted == fields)) return;
    std::vector<const char *> ignored;
    const OGRFeatureDefn & definition = *layer->GetLayerDefn();
    for (int i = 0; i < definition.GetFieldCount(); ++i)
        if (std::find(wanted.begin(), wanted.end(), static_cast<unsigned>(i)) == wanted.end())
            ignored.push_back(const_cast<OGRFeatureDefn &>(definition).GetFieldDefn(i)->GetNameRef());
    ignored.push_back(nullptr);
    layer->SetIgnoredFields(ignored.data());
    areAllRead = false;
    fields = wanted;
}

LayerReader::LayerReader(const std::string & path, const std::string & name, const std::string & layer)
    : LayerReader(openFile(path, name)) {
    choose(layer);
}

LayerReader::LayerReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

std::unique_ptr<LayerReader::Impl> LayerReader::openFile(const std::string & path, const std::string & name) {
    auto impl = std::make_unique<Impl>();
    impl->name = name;
    impl->path = path;
    impl->bytes = fileBytes(path);
    impl->dataset = openVectors(path, name);
    return impl;
}

void LayerReader::choose(const std::string & layer) {
    const GdalErrorTrap trap;
    impl_->layer = chosenLayer(*impl_->dataset, impl_->name, layer);
    OGRFeatureDefn & definition = *impl_->layer->GetLayerDefn();
    FieldValue text;
    for (int i = 0; i < definition.GetFieldCount(); ++i) {
        setText(text, definition.GetFieldDefn(i)->GetNameRef());
        fields_.push_back({std::get<std::string>(text), typeOf(*definition.GetFieldDefn(i))});
        impl_->types.push_back(definition.GetFieldDefn(i)->GetType());
    }
    if (trap.failed())
        throw NBX::InputException(L"is damaged; get the file anew", impl_->name, 0, trap.text());
}

LayerReader::~LayerReader() = default;

void LayerReader::forAll(const std::string & path, const std::string & name,
                         const std::function<void(std::unique_ptr<LayerReader>)> & take) {
    auto first = openFile(path, name);
    for (const std::string & layer : layerNames(*first->dataset)) {
        std::unique_ptr<LayerReader> reader(new LayerReader(first ? std::move(first) : openFile(path, name)));
        reader->choose(layer);
        take(std::move(reader));
    }
}

std::string LayerReader::layerName() const {
    return impl_->layer->GetName();
}

const OGRSpatialReference * LayerReader::system() const {
    return impl_->layer->GetSpatialRef();
}

std::uint64_t LayerReader::size() const {
    const GdalErrorTrap trap; // what cannot be read says so when it is
    return static_cast<std::uint64_t>(std::max<GIntBig>(impl_->layer->GetFeatureCount(), 0));
}

std::optional<std::uint64_t> LayerReader::knownSize() const {
    return impl_->layer->TestCapability(OLCFastFeatureCount) ? std::optional(size()) : std::nullopt;
}

FeatureSource::Kinds LayerReader::kinds() const {
    switch (wkbFlatten(impl_->layer->GetGeomType())) {
    case wkbNone:
        return {false, false, false};
    case wkbPoint:
    case wkbMultiPoint:
        return {true, false, false};
    case wkbLineString:
    case wkbMultiLineString:
    case wkbCircularString:
    case wkbCompoundCurve:
    case wkbMultiCurve:
        return {false, true, false};
    case wkbPolygon:
    case wkbMultiPolygon:
    case wkbCurvePolygon:
    case wkbMultiSurface:
    case wkbPolyhedralSurface:
    case wkbTIN:
    case wkbTriangle:
        return {false, false, true};
    default:
        return {true, true, true};
    }
}

bool LayerReader::hasIndex() const {
    return impl_->layer->TestCapability(OLCFastSpatialFilter);
}

bool LayerReader::mayHaveStyles() const {
    constexpr const char * plain[] = {"FlatGeobuf", "GPKG", "ESRI Shapefile"};
    const std::string format = impl_->dataset->GetDriverName();
    return std::find(std::begin(plain), std::end(plain), format) == std::end(plain) ||
           impl_->layer->GetLayerDefn()->GetFieldIndex("OGR_STYLE") >= 0;
}

bool LayerReader::isOrdered() const {
    const std::string format = impl_->dataset->GetDriverName();
    return format == "FlatGeobuf" || format == "ESRI Shapefile";
}

std::optional<GeoExtent> LayerReader::knownExtent() const {
    const GdalErrorTrap trap; // as above
    OGREnvelope box;
    if (!impl_->layer->TestCapability(OLCFastGetExtent) ||
        impl_->layer->GetExtent(&box, FALSE) != OGRERR_NONE)
        return std::nullopt;
    for (const double bound : {box.MinX, box.MinY, box.MaxX, box.MaxY})
        if (!std::isfinite(bound)) return std::nullopt;
    return GeoExtent{box.MinX, box.MinY, box.MaxX, box.MaxY};
}

void LayerReader::read(const GeoExtent * box, const std::vector<unsigned> & fields,
                       const std::function<bool(OGRFeature &)> & visit) {
    // Some formats take what is missing for the end.
    if (fileBytes(impl_->path) < impl_->bytes)
        throw NBX::InputException(L"has become shorter since it was opened; get the file anew", impl_->name);
    const GdalErrorTrap trap;
    impl_->setFields(fields);
    if (box)
        impl_->layer->SetSpatialFilterRect(box->minX, box->minY, box->maxX, box->maxY);
    else
        impl_->layer->SetSpatialFilter(nullptr);
    impl_->layer->ResetReading();
    for (bool goesOn = true; goesOn;) {
        const OGRFeatureUniquePtr feature(impl_->layer->GetNextFeature());
        if (trap.failed())
            throw NBX::InputException(L"is damaged or cut off; get the file anew", impl_->name, 0,
                                      trap.text());
        goesOn = feature && visit(*feature);
    }
}

void LayerReader::values(const OGRFeature & feature, const std::vector<unsigned> & fields,
                         std::vector<FieldValue> & values) const {
    values.resize(fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i)
        setValue(feature, static_cast<int>(fields[i]), impl_->types[fields[i]], values[i]);
}

} // namespace ZMT::RASTER
