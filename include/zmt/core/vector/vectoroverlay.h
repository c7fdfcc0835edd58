#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nbx/object/sharedobj.h>
#include <zmt/core/vector/vectorstylesheet.h>
#include <zmt/raster/featuresource.h>

namespace ZMT::CORE {

class DrapedLabels;

/// Features of one source, and how they lie on the ground. It is drawn by the `VectorOverlayTexture`s in
/// which it stands, which see changes of it at the next picture. Render thread, like its source.
class VectorOverlay : public NBX::SharedObj {
    NBX_CLASS(VectorOverlay, NBX::SharedObj)
public:
    using Source = std::shared_ptr<const RASTER::FeatureSource>;

    /// `source` is not null. Throws as `VectorStyleSheet::fieldsOf`.
    explicit VectorOverlay(Source source, VectorStyleSheet sheet = {});
    ~VectorOverlay() override;

    /// For people; at first that of the source.
    const std::string & name() const { return name_; }
    void setName(const std::string & name) { name_ = name; }
    const Source & source() const { return source_; }

    const VectorStyleSheet & styleSheet() const { return sheet_; }
    /// Throws as the constructor, and then changes nothing.
    void setStyleSheet(VectorStyleSheet sheet);
    /// Of the source, for queries: those of the style sheet, in its order.
    const std::vector<unsigned> & fields() const { return fields_; }

    /// From 0 to 1, at first 1; times that of the styles.
    double opacity() const { return opacity_; }
    /// Cut to that range; what is no number is reported, and ignored.
    void setOpacity(double opacity);
    bool isShown() const { return isShown_; }
    void setShown(bool isShown);

    /// What was drawn into textures since the start.
    struct Counts {
        std::uint64_t textures = 0; ///< for which features were read
        std::uint64_t features = 0, vertices = 0, labels = 0;
    };
    const Counts & counts() const { return counts_; }
    /// Why features could not be read, empty as long as they could; reported as well, once.
    const std::string & failure() const { return failure_; }

private:
    friend class VectorOverlayReader;

    Source source_;
    std::string name_;
    VectorStyleSheet sheet_;
    std::vector<unsigned> fields_;
    double opacity_ = 1.0;
    bool isShown_ = true;
    mutable Counts counts_;
    mutable std::shared_ptr<const DrapedLabels> labels_; ///< null until they are asked for
    mutable std::string failure_;
};

} // namespace ZMT::CORE
