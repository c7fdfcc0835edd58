#pragma once

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/math/bounds.h>
#include <nbx/math/ray.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/shape.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/raster/georeference.h>

namespace ZMT::CORE {

class ModelLift;

/// Textured models that were built into trees, as a file keeps them: the scene that draws them, its place,
/// and what the models are. The paging files of the trees stand beside the file, whose scene names them
/// without a folder. Belongs to the render thread.
class CityModels : public NBX::SharedObj {
    NBX_STORED_CLASS(CityModels, NBX::SharedObj)
public:
    using Point = NBX::Vector3Base<double>;

    /// One of those that were joined.
    struct Model {
        std::string name;                          ///< for people
        std::string source;                        ///< the file it came from, without folder
        Point place;                               ///< of its own origin, in geo coordinates
        NBX::Bounds box;                           ///< in the frame of the scene
        unsigned firstTriangle = 0, triangles = 0; ///< in the order in which the models were joined
        double ground = unknown; ///< height of the ground below its origin, in geo coordinates

        static constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

        /// Attributes "name", "source", "place", "box", "firstTriangle", "triangles", "ground" (default
        /// unknown).
        void serialize(NBX::SerializationManager & m);
    };

    /// `origin`, in geo coordinates, is that of the frame of `scene`, whose axes are those of scene
    /// coordinates.
    CityModels(const NBX::SO<NBX::SceneThing> & scene, const Point & origin,
               const RASTER::GeoReference & reference, std::vector<Model> models);
    ~CityModels() override;

    const NBX::SO<NBX::SceneThing> & scene() const { return scene_; }
    const Point & origin() const { return origin_; }
    /// Of the geo coordinates.
    const RASTER::GeoReference & reference() const { return reference_; }
    const std::vector<Model> & models() const { return models_; }
    /// Those of the scene, each once, in the order of the scene.
    std::vector<NBX::SO<TexturedTriangleTree>> trees() const;
    /// Of all trees and layers, each name once, in alphabetical order.
    std::vector<std::string> pagingFiles() const;
    /// Of all models, in the frame of the scene, as they stand; undefined without any.
    NBX::Bounds boundingBox() const;
    /// Raises each model, by its number in `models()`, by so many units of the scene above its own height,
    /// and what belongs to none by `rest`, in what is drawn and in what rays hit. What `models()` tells
    /// stays, and `write` writes none of it. Replaces what was set before.
    void lift(std::vector<double> ofModels, double rest);
    /// The model on whose surface `point` may lie, in the frame of the scene: the one of the smallest box,
    /// lifted as it is, that holds it, or comes as near as `tolerance`. Null for none.
    const Model * modelAt(const Point & point, double tolerance) const;
    /// What a ray hits.
    struct Hit {
        const Model * model; ///< null for what belongs to none
        double lift;         ///< by how much that was lifted, in metres
    };
    /// Whose triangle of `shape`, which belongs to the trees, `ray` hits first, at `point`; both are in the
    /// frame of the scene. In files in which triangles do not tell their models it is that of `modelAt`.
    /// Takes time by the number of triangles of the shape.
    Hit modelHit(const NBX::Shape & shape, const NBX::Ray & ray, const Point & point, double tolerance) const;
    /// By how much `model`, one of `models()`, was lifted, in metres; of what belongs to none for null.
    double liftOf(const Model * model) const;

    /// Whether the file at a path was written as a city, as far as a part of it tells.
    static bool isFile(const std::string & path);
    /// What lies at a path, or at a URL, which is read whole. The paging files of its trees are those beside
    /// it. Throws `NBX::InputException` for what cannot be read, and for what is something else.
    static NBX::SO<CityModels> load(const std::string & locator);
    /// Its two halves, for those who must not wait on the thread that draws: all bytes of a file, on its
    /// thread, and, on any thread, what `bytes` that lay at `locator` hold. Throw as above.
    static NBX::SO<NBX::DataResource> fetch(AsyncFile & file);
    static NBX::SO<CityModels> read(const NBX::SO<NBX::DataResource> & bytes, const std::string & locator);
    /// Beside the paging files of the trees: throws `NBX::InputException` where one stands in another folder.
    /// Throws `NBX::IOException` where the file cannot be written.
    void write(const std::string & path) const;

    /// Attributes "scene", "origin", the reference (`serializeReference`) and "models". Throws `IOError`
    /// without a scene.
    void serialize(NBX::SerializationManager & m) override;

protected:
    CityModels();

private:
    void findPagingFiles(const std::string & locator) const;

    NBX::SO<NBX::SceneThing> scene_;
    Point origin_;
    RASTER::GeoReference reference_;
    std::vector<Model> models_;
    std::unique_ptr<ModelLift> lift_; ///< null before the first one
    std::vector<double> lifts_;
    double restLift_ = 0.0;
};

} // namespace ZMT::CORE
