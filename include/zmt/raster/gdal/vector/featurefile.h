#pragma once

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/raster/featuresource.h>
#include <zmt/raster/georeference.h>

namespace NBX {
class DataResource;
}

namespace ZMT::RASTER {

/// A layer of a file in any vector format that GDAL reads, by the place where its features lie. A file that
/// finds features by itself (GeoPackage, FlatGeobuf, Shapefile with an index) is asked for each window; of
/// others all is read once, when they are opened, and kept: in memory, or where it is more than some MiB, in
/// a temporary file. Positions are brought into the wanted system each by itself, and long edges get more of
/// them before. One thread at a time uses a file.
class FeatureFile : public FeatureSource {
public:
    static constexpr double infinity = std::numeric_limits<double>::infinity();
    static constexpr GeoExtent everywhere{-infinity, -infinity, infinity, infinity};

    using Layers = std::vector<std::shared_ptr<const FeatureFile>>;

    /// All layers of a file, but for those that show the points of others once more, each as the constructor
    /// opens it. Formats that are read as a whole and have one layer are read once.
    static Layers layers(const std::string & path, const std::string & wkt = "",
                         const GeoExtent & area = everywhere);
    /// The same of bytes in memory; `name` tells their format by its suffix.
    static Layers layers(const NBX::SO<NBX::DataResource> & bytes, const std::string & name,
                         const std::string & wkt = "", const GeoExtent & area = everywhere);

    /// Opens `path`, or what else GDAL understands. Without the name of a layer the first one with features
    /// is taken. Features are read in the coordinate system `wkt`, where they lie in `area`, which is in that
    /// system; with an empty `wkt`, and of a file that does not tell its system, coordinates are taken as
    /// they are. What is read at once shows an `NBX::Progress`. Throws `NBX::FileNotFoundException` or
    /// `NBX::InputException`, which say what is wrong and what to do, the latter also after a cancel.
    explicit FeatureFile(const std::string & path, const std::string & layer = "",
                         const std::string & wkt = "", const GeoExtent & area = everywhere);
    /// The same for bytes in memory, as above.
    FeatureFile(NBX::SO<NBX::DataResource> bytes, const std::string & name, const std::string & layer = "",
                const std::string & wkt = "", const GeoExtent & area = everywhere);
    ~FeatureFile() override;
    FeatureFile(const FeatureFile &) = delete;
    FeatureFile & operator=(const FeatureFile &) = delete;

    const std::string & layerName() const;
    /// The system of the file.
    const GeoReference & reference() const;

    /// Features that are not drawn as they are in the file, or not at all, by the reason; of a file that is
    /// asked for each window those that have come so far.
    struct Losses {
        std::uint64_t withoutGeometry = 0; ///< none, empty, or of a kind without places
        std::uint64_t notFinite = 0;       ///< places that are no numbers
        std::uint64_t withoutPosition = 0; ///< places that the wanted system does not have
        std::uint64_t tooFewPoints = 0;    ///< lines without length, outlines without an inside
        std::uint64_t tooDeep = 0;         ///< collections in collections
    };
    const Losses & losses() const;
    /// The same in one line for people; empty where all is drawn.
    std::string lossReport() const;

    const std::string & name() const override;
    const std::vector<VectorField> & fields() const override;
    std::uint64_t size() const override;
    std::optional<GeoExtent> extent() const override;
    Kinds kinds() const override;
    void read(const Query & query, const std::function<bool(const VectorFeature &)> & visit) const override;

private:
    class FileInMemory;
    struct Impl;

    explicit FeatureFile(std::unique_ptr<Impl> impl);
    static Layers layersOf(const std::shared_ptr<const FileInMemory> & file, const std::string & path,
                           const std::string & name, const std::string & wkt, const GeoExtent & area);

    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::RASTER
