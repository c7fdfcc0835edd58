#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <ogrsf_frmts.h>

#include <cpl_error.h>
#include <cpl_string.h>

/// What `writeFeatures` writes: geometry as well-known text, empty for none.
struct WrittenFeature {
    std::string geometry;
    std::string name = "";
    int number = 0;
    std::string style = "";
};

struct WrittenFile {
    const char * format;
    const char * suffix;
    std::vector<std::string> layerOptions = {};
};

/// One that finds features by itself, and one that does not.
inline const WrittenFile s_indexed{"GPKG", ".gpkg"};
inline const WrittenFile s_plain{"GeoJSON", ".geojson", {"RFC7946=NO", "WRITE_NON_FINITE_VALUES=YES"}};
/// Takes any geometry.
inline const WrittenFile s_text{"CSV", ".csv", {"GEOMETRY=AS_WKT", "CREATE_CSVT=YES"}};

inline OGRSpatialReference systemOf(const std::string & text) {
    OGRSpatialReference system;
    EXPECT_EQ(OGRERR_NONE, system.SetFromUserInput(text.c_str())) << text;
    system.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return system;
}

inline std::unique_ptr<OGRGeometry> geometryOf(const std::string & text) {
    OGRGeometry * geometry = nullptr;
    EXPECT_EQ(OGRERR_NONE, OGRGeometryFactory::createFromWkt(text.c_str(), nullptr, &geometry)) << text;
    return std::unique_ptr<OGRGeometry>(geometry);
}

/// Writes the features, with the fields "name" and "number", into a layer "things". Answers the path.
inline std::string writeFeatures(const std::string & pathWithoutSuffix, const WrittenFile & file,
                                 const std::string & system, const std::vector<WrittenFeature> & features,
                                 OGRwkbGeometryType type = wkbUnknown) {
    GDALAllRegister();
    const CPLErrorHandlerPusher quiet(CPLQuietErrorHandler); // of kinds that the format does not promise
    const std::string path = pathWithoutSuffix + file.suffix;
    GDALDriver * driver = GetGDALDriverManager()->GetDriverByName(file.format);
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    CPLStringList options;
    for (const std::string & option : file.layerOptions)
        options.AddString(option.c_str());
    OGRSpatialReference reference;
    if (!system.empty()) reference = systemOf(system);
    OGRLayer * layer =
        dataset->CreateLayer("things", system.empty() ? nullptr : &reference, type, options.List());
    OGRFieldDefn name("name", OFTString), number("number", OFTInteger);
    layer->CreateField(&name);
    layer->CreateField(&number);
    EXPECT_EQ(OGRERR_NONE, layer->StartTransaction());
    for (const WrittenFeature & written : features) {
        const OGRFeatureUniquePtr feature(OGRFeature::CreateFeature(layer->GetLayerDefn()));
        feature->SetField(0, written.name.c_str());
        feature->SetField(1, written.number);
        if (!written.style.empty()) feature->SetStyleString(written.style.c_str());
        if (!written.geometry.empty()) feature->SetGeometry(geometryOf(written.geometry).get());
        EXPECT_EQ(OGRERR_NONE, layer->CreateFeature(feature.get())) << written.geometry;
    }
    EXPECT_EQ(OGRERR_NONE, layer->CommitTransaction());
    return path;
}
