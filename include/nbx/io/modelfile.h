#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nbx/math/bounds.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenething.h>

namespace NBX {

/// A direction of a model that is upwards in the scene. The axes are right-handed: with z upwards, x is to
/// the east and y to the north; with y upwards, x to the east and z to the south; with x upwards, y to the
/// west and z to the south.
enum class ModelUp { X, Y, Z };

/// Who said what a model's axes and unit are.
enum class ModelSource {
    Option, ///< the caller
    File,
    Format, ///< what files of this format have when nobody says anything
};

/// A texture that a model names, or that stands in its file.
struct ModelTexture {
    std::string name; ///< as the model has it
    std::string path; ///< of the file that was found; empty for one that stands in the model
    int width = 0, height = 0;
    std::string failure; ///< why it is left out, as a part of a sentence; empty where it is not
};

/// A model in the axes of the scene (x to the east, y up, z to the north) and in metres, and what is known of
/// its file.
struct Model {
    /// Transformations as the model has them, and at the top one from its axes and unit to the scene's.
    /// Below them nodes of a colour, a material, a texture that repeats unless the model says otherwise, and
    /// triangles. Textures are `EncodedImage`s. What the model uses twice stands there twice as one object.
    SO<SceneThing> scene;
    std::string format; ///< for people
    ModelUp up = ModelUp::Z;
    double metresPerUnit = 1.0;
    ModelSource upSource = ModelSource::Format, unitSource = ModelSource::Format;
    unsigned meshes = 0;
    std::uint64_t vertices = 0, triangles = 0; ///< as often as they are drawn
    unsigned materials = 0;                    ///< that are drawn
    std::vector<ModelTexture> textures;        ///< each once, in the order of the materials
    Bounds box;                                ///< undefined where there is no triangle
    std::vector<std::string> leftOut;          ///< what else the file has, a line each
};

struct ModelOptions {
    std::optional<ModelUp> up;
    std::optional<double> metresPerUnit;
    /// Where textures are looked for after the model's own folder.
    std::vector<std::string> textureFolders;
    /// What the process that reads the file may take; 0 for limits that grow with the file: 1 GiB and 32
    /// times its size, and 60 s and a second for each MiB.
    std::uint64_t memoryLimit = 0;
    double secondsLimit = 0.0;
};

/// Models of buildings, bridges, trees, in COLLADA, OBJ, glTF, FBX, 3DS, STL and PLY files. Each is read by a
/// process of its own, whose memory and time are limited and whose answer is checked, so that no file can end
/// or halt this one. Files that a model names are read in its own folder and below alone; textures also in
/// folders that are given.
class ModelFile {
public:
    /// Whether the suffix is that of a model, in upper or lower case.
    static bool recognizes(const std::string & path);
    /// The suffixes, in small letters.
    static const std::vector<std::string> & suffixes();

    /// Throws `InputException` with one line where there is no model, `FileNotFoundException` where there is
    /// no file. Textures that cannot be had are told in the model, and not reported. Shows its progress. From
    /// any thread.
    static Model read(const std::string & path, const ModelOptions & options = {});
};

} // namespace NBX
