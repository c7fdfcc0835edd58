#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nbx/io/modelfile.h>
#include <nbx/scene/shape/polygonset.h>

#include "modelanswer.h"
#include "modeltextures.h"

namespace NBX {

/// Makes a scene of what the program that reads models says.
class ModelScene {
public:
    /// More triangles, counted as often as they are drawn, are refused: a small file may show its meshes at
    /// any number of places, and each of these triangles takes hundreds of bytes where a city is built.
    static constexpr std::uint64_t maxTriangles = std::uint64_t{1} << 24;

    /// Borrows both.
    ModelScene(const ModelAnswer & answer, ModelTextures & textures);

    /// Fills `model.scene` and what is counted with it. `toScene` brings the model's coordinates to those of
    /// the scene. Throws `IOError` where there are too many triangles.
    void build(const Matrix4x4Base<double> & toScene, Model & model);

private:
    struct Part; ///< the triangles of a mesh that can be drawn

    const Part & partOf(std::uint32_t mesh);
    SO<SceneThing> thingOf(std::uint32_t mesh, bool isMirrored);
    /// `loss` is by how much the node may stand beside its place, in metres.
    void addMeshes(const ModelAnswer::Node & node, SceneThing & thing, const Matrix4x4Base<double> & toScene,
                   bool isMirrored, double loss, Model & model);
    void tellLoss(Model & model) const;

    const ModelAnswer & answer_;
    ModelTextures & textures_;
    std::vector<std::shared_ptr<const Part>> parts_;
    std::map<std::pair<std::uint32_t, bool>, SO<SceneThing>> things_;
    std::uint64_t placeless_ = 0;
    double loss_ = 0.0; ///< by how much a vertex may lie beside its place, in metres
};

} // namespace NBX
