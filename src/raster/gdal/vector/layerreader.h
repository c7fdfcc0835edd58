#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <zmt/raster/featuresource.h>

class OGRFeature;
class OGRSpatialReference;

namespace ZMT::RASTER {

/// One layer of a file of vectors, as the file has it. One thread at a time.
class LayerReader {
public:
    /// Opens `path`; messages call it `name`. Without a `layer` the first one with features is taken. Throws
    /// `NBX::InputException`, as do the other functions where the file is damaged.
    LayerReader(const std::string & path, const std::string & name, const std::string & layer);
    ~LayerReader();

    /// Opens all layers of a file in turn, but for those that show the points of others once more. The first
    /// one has what was opened to know which there are.
    static void forAll(const std::string & path, const std::string & name,
                       const std::function<void(std::unique_ptr<LayerReader>)> & take);

    std::string layerName() const;

    const std::vector<VectorField> & fields() const { return fields_; }
    const OGRSpatialReference * system() const; ///< may be null
    std::uint64_t size() const;
    /// None where it takes a look at all features.
    std::optional<std::uint64_t> knownSize() const;
    FeatureSource::Kinds kinds() const;
    /// The source finds features by itself.
    bool hasIndex() const;
    /// What it finds comes in the order of the ids.
    bool isOrdered() const;
    /// Its features may say how they are drawn. False where the format has no place for that.
    bool mayHaveStyles() const;
    /// Where its features lie; none where it does not know without looking at all of them.
    std::optional<GeoExtent> knownExtent() const;

    /// Calls `visit` with the features that may lie in a box, all for a null one, until it answers false.
    void read(const GeoExtent * box, const std::vector<unsigned> & fields,
              const std::function<bool(OGRFeature &)> & visit);
    /// Replaces `values` by those of `fields`.
    void values(const OGRFeature & feature, const std::vector<unsigned> & fields,
                std::vector<FieldValue> & values) const;

private:
    struct Impl;

    explicit LayerReader(std::unique_ptr<Impl> impl);
    static std::unique_ptr<Impl> openFile(const std::string & path, const std::string & name);
    void choose(const std::string & layer);

    std::unique_ptr<Impl> impl_;
    std::vector<VectorField> fields_;
};

} // namespace ZMT::RASTER
