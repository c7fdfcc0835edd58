#include <zmt/raster/gdal/geofile.h>

#include <mutex>
#include <utility>
#include <vector>

#include "gdalsupport.h"

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/gdal/imagefilepyramid.h>

namespace ZMT::RASTER {

namespace {

class InstalledFormats {
public:
    void add(const GeoFileFormat * format) {
        const std::lock_guard<std::mutex> lock(mutex_);
        formats_.push_back(format);
    }
    std::vector<const GeoFileFormat *> all() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return formats_;
    }

private:
    std::mutex mutex_;
    std::vector<const GeoFileFormat *> formats_; ///< guarded by `mutex_`; never freed
};

/// Outlives the static objects of the libraries whose formats it has.
InstalledFormats & installedFormats() {
    static auto * installed = new InstalledFormats;
    return *installed;
}

/// Without a format the kind is `Unknown`.
std::pair<const GeoFileFormat *, GeoFileKind> installedFormatOf(const std::string & path) {
    for (const GeoFileFormat * format : installedFormats().all()) {
        const GeoFileKind kind = format->kindOf(path);
        if (kind != GeoFileKind::Unknown) return {format, kind};
    }
    return {nullptr, GeoFileKind::Unknown};
}

/// Null for what cannot be opened.
GdalDataset tryToOpen(const std::string & path, unsigned kind) {
    const GdalErrorTrap trap;
    try {
        return openDataset(path, kind, L"", trap);
    } catch (const NBX::InputException &) {
        return nullptr;
    }
}

GeoFileKind kindByGdal(const std::string & path) {
    const GdalErrorTrap trap;
    if (const GdalDataset raster = tryToOpen(path, GDAL_OF_RASTER); raster && raster->GetRasterCount() > 0) {
        // The numbers of a palette mean colours.
        const bool isHeights = raster->GetRasterCount() == 1 && !raster->GetRasterBand(1)->GetColorTable();
        return isHeights ? GeoFileKind::Heights : GeoFileKind::Image;
    }
    const GdalDataset vectors = tryToOpen(path, GDAL_OF_VECTOR);
    return vectors && vectors->GetLayerCount() > 0 ? GeoFileKind::Vectors : GeoFileKind::Unknown;
}

/// Files of installed formats are no concern of GDAL. `lacking` ends the sentence that says what they are.
void refuseInstalled(const std::string & path, GeoFileKind wanted, const std::wstring & lacking) {
    const auto [format, kind] = installedFormatOf(path);
    if (!format) return;
    throw NBX::InputException(L"is " + NBX::StringUtils::Utf8String2WString(format->name()) +
                                  (kind == wanted ? L", which is only drawn; choose what it was built from"
                                                  : L", which has " + lacking),
                              path);
}

/// What `open` gives. What it throws for a file of the other kind, vectors or not, becomes a sentence that
/// says what the file holds, and ends with `lacking`.
template <class Open>
auto openByGdal(const std::string & path, bool wantsVectors, const std::wstring & lacking,
                const Open & open) {
    try {
        return open();
    } catch (const NBX::FileNotFoundException &) {
        throw;
    } catch (const NBX::InputException &) {
        const GeoFileKind kind = kindByGdal(path);
        const bool isVectors = kind == GeoFileKind::Vectors;
        if (kind == GeoFileKind::Unknown || isVectors == wantsVectors) throw;
        throw NBX::InputException(
            (isVectors ? L"holds lines or areas and " : L"holds a raster and ") + lacking, path);
    }
}

} // namespace

GeoFileKind GeoFile::kindOf(const std::string & path) {
    const GeoFileKind kind = installedFormatOf(path).second;
    return kind != GeoFileKind::Unknown ? kind : kindByGdal(path);
}

const GeoFileFormat * GeoFile::formatOf(const std::string & path) {
    return installedFormatOf(path).first;
}

std::unique_ptr<RasterFile> GeoFile::openHeights(const std::string & path) {
    const std::wstring lacking = L"no heights; choose a raster of heights";
    refuseInstalled(path, GeoFileKind::Heights, lacking);
    return openByGdal(path, false, lacking, [&] { return std::make_unique<RasterFile>(path); });
}

NBX::SO<TiledGeoImagePyramid> GeoFile::openImage(const std::string & path, const std::string & wkt) {
    if (const GeoFileFormat * format = formatOf(path)) return format->openImage(path, wkt);
    return openByGdal(path, false, L"no image; choose an image",
                      [&] { return NBX::SO<TiledGeoImagePyramid>(new ImageFilePyramid(path, wkt)); });
}

NBX::SO<TiledGeoImagePyramid> GeoFile::openImage(const std::string & path, const std::string & wkt,
                                                 const ImageColors & colors) {
    if (const GeoFileFormat * format = formatOf(path)) {
        if (colors.text().empty()) return format->openImage(path, wkt);
        throw NBX::InputException(L"is " + NBX::StringUtils::Utf8String2WString(format->name()) +
                                      L", whose colours are settled; choose them when it is built",
                                  path);
    }
    return openByGdal(path, false, L"no image; choose an image",
                      [&] { return NBX::SO<TiledGeoImagePyramid>(new ImageFilePyramid(path, wkt, colors)); });
}

std::unique_ptr<VectorFile> GeoFile::openVectors(const std::string & path) {
    const std::wstring lacking = L"no lines or areas; choose a file of them";
    refuseInstalled(path, GeoFileKind::Vectors, lacking);
    return openByGdal(path, true, lacking, [&] { return std::make_unique<VectorFile>(path); });
}

void GeoFile::install(std::unique_ptr<const GeoFileFormat> format) {
    NBX_CHECK(format, L"no format");
    if (format) installedFormats().add(format.release());
}

} // namespace ZMT::RASTER
