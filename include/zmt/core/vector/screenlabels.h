#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <zmt/core/vector/vectorstyle.h>
#include <zmt/raster/featuresource.h>

namespace NBX {
class Camera;
}

namespace ZMT::CORE {

class VectorOverlay;

/// Names that stand upright on the screen, where features lie on the ground: those of the largest parts, as
/// many as have room. To be told of each picture before it is drawn; what shows is a node for the end of the
/// scene. Belongs to the thread of the scene.
///
/// Laws: (1) no two labels overlap, halos included, and all lie within the picture; (2) none shows where the
/// ground hides its place from the eye, where there is no ground, behind the eye or beyond the far plane;
/// (3) a feature has at most one label; (4) a view that is complete shows the same labels when it is asked
/// for again; (5) a label that showed keeps its place against all of its layer that are not four times as
/// large.
class ScreenLabels {
public:
    using Point = NBX::Vector3Base<double>;

    /// What is to be read at a feature.
    struct Label {
        std::string text; ///< UTF-8
        VectorStyle::Label style;
    };
    /// Features that have names.
    struct Layer {
        std::shared_ptr<const RASTER::FeatureSource> source; ///< in geo coordinates
        /// Numbers of the fields that `labelOf` needs.
        std::vector<unsigned> fields;
        /// Nothing for a feature without a label; `values` are those of `fields`. Blank texts and labels that
        /// lie on the ground are left out.
        std::function<std::optional<Label>(const RASTER::VectorFeature &)> labelOf;
        bool isShown = true;
        double opacity = 1.0; ///< times that of the colours

        /// As the overlay is now, which is not null.
        static Layer of(const NBX::SO<const VectorOverlay> & overlay);
    };
    /// What features lie on, in scene coordinates, exaggerated as it is drawn.
    struct Ground {
        NBX::Bounds box; ///< which may be too large
        /// Not finite where there is none.
        std::function<double(double x, double z)> heightAt;
        /// Whether the ground lies between the two places; empty for ground that hides nothing.
        std::function<bool(const Point & eye, const Point & place)> isHidden;

        /// For `isHidden`: whether a shape of the node is met on the way. It may be called as long as the
        /// node stays as it is.
        static std::function<bool(const Point &, const Point &)>
        hiddenBehind(const NBX::SO<NBX::SceneNode> & node);
    };
    /// How much one call of `update` may do of what takes long; the rest waits for the next ones.
    struct Effort {
        unsigned windows = 1;    ///< to be read from sources
        unsigned texts = 30;     ///< to be laid out
        unsigned heights = 1000; ///< to be asked of the ground
        unsigned rays = 100;     ///< that look for ridges

        static Effort unlimited();
    };
    /// A rectangle of the picture in pixels, from its lower left corner.
    struct Rectangle {
        double left = 0.0, bottom = 0.0, right = 0.0, top = 0.0;

        bool overlaps(const Rectangle & other) const {
            return left < other.right && other.left < right && bottom < other.top && other.bottom < top;
        }
        bool contains(double x, double y) const { return left <= x && x <= right && bottom <= y && y <= top; }
    };
    /// What shows.
    struct Placed {
        unsigned layer;
        std::int64_t feature;
        std::wstring text;
        Rectangle box;  ///< with the halo
        Point position; ///< in the scene, a little above the ground
    };
    /// Since the layers were set.
    struct Counts {
        std::uint64_t missingGlyphs = 0; ///< characters that the font has not, which is reported once
        std::uint64_t unread = 0;        ///< windows of sources that failed, reported once for each layer
    };

    ScreenLabels();
    ~ScreenLabels();
    ScreenLabels(const ScreenLabels &) = delete;
    ScreenLabels & operator=(const ScreenLabels &) = delete;

    /// The first layer is the most important one. All is read anew. A null source and an empty function are
    /// reported, and such a layer has no labels.
    void setLayers(std::vector<Layer> layers);
    /// Numbers out of range are reported, and ignored.
    void setShown(unsigned layer, bool isShown);
    void setOpacity(unsigned layer, double opacity);
    /// Without ground, as at first, nothing shows.
    void setGround(Ground ground);
    /// Heights, or what hides, are not what they were; boxes of other size need `setGround`.
    void groundChanged();

    /// Finds what shows in a picture of `width` by `height` pixels. True when nothing is left to be done:
    /// another call with the same view would change nothing.
    bool update(const NBX::Camera & camera, unsigned width, unsigned height,
                const Effort & effort = Effort::unlimited());

    /// The labels, drawn over all that is drawn before: what hides them was asked of the ground. The object
    /// is the same for ever.
    const NBX::SO<NBX::SceneThing> & node() const;
    /// As of the last update, the most important one first.
    const std::vector<Placed> & placed() const;
    /// That at a place of the picture, in pixels from its lower left corner; null where there is none.
    const Placed * labelAt(double x, double y) const;
    const Counts & counts() const;

    /// About so many features of a layer are looked at for one picture: the largest ones of far windows, all
    /// of near ones.
    static constexpr unsigned maxCandidates = 10'000;
    /// Equal labels of lines and areas of one layer stand at least so many pixels apart.
    static constexpr double repeatDistance = 200.0;
    /// What is longer is cut.
    static constexpr unsigned maxCharacters = 100;
    /// Size of a pixel in metres, for the scale of a map.
    static constexpr double pixelSize = 0.00028;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace ZMT::CORE
