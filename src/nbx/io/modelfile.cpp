#include <nbx/io/modelfile.h>

#include <algorithm>
#include <cmath>
#include <map>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "modelanswer.h"
#include "modelscene.h"
#include "modeltextures.h"
#include "readerprocess.h"
#include "suffixof.h"

namespace NBX {

namespace {

using Matrix = Matrix4x4Base<double>;

const std::map<std::string, std::string> & formats() {
    static const std::map<std::string, std::string> all = {
        {"dae", "COLLADA"}, {"obj", "OBJ"}, {"gltf", "glTF"}, {"glb", "binary glTF"},
        {"fbx", "FBX"},     {"3ds", "3DS"}, {"stl", "STL"},   {"ply", "PLY"}};
    return all;
}

/// What files of a format mean when they do not say it.
ModelUp usualUp(const std::string & suffix) {
    return suffix == "3ds" || suffix == "stl" || suffix == "ply" ? ModelUp::Z : ModelUp::Y;
}

double usualUnit(const std::string & suffix) {
    return suffix == "fbx" ? 0.01 : 1.0;
}

void chooseAxes(const ModelAnswer & answer, const std::string & suffix, const ModelOptions & options,
                Model & model) {
    model.up = usualUp(suffix);
    model.metresPerUnit = usualUnit(suffix);
    if (answer.up != ModelAnswer::U_Unknown) {
        model.up = answer.up == ModelAnswer::U_X   ? ModelUp::X
                   : answer.up == ModelAnswer::U_Y ? ModelUp::Y
                                                   : ModelUp::Z;
        model.upSource = ModelSource::File;
    }
    if (answer.unit > 0.0) {
        model.metresPerUnit = answer.unit;
        model.unitSource = ModelSource::File;
    }
    // These formats are defined so.
    if (suffix == "gltf" || suffix == "glb") model.upSource = model.unitSource = ModelSource::File;
    if (options.up) {
        model.up = *options.up;
        model.upSource = ModelSource::Option;
    }
    if (options.metresPerUnit) {
        model.metresPerUnit = *options.metresPerUnit;
        model.unitSource = ModelSource::Option;
    }
}

/// From right-handed axes to x to the east, y up, z to the north.
Matrix toScene(ModelUp up, double metresPerUnit) {
    const double u = metresPerUnit;
    switch (up) {
    case ModelUp::X:
        return Matrix({0, -u, 0, 0, u, 0, 0, 0, 0, 0, -u, 0, 0, 0, 0, 1});
    case ModelUp::Y:
        return Matrix({u, 0, 0, 0, 0, u, 0, 0, 0, 0, -u, 0, 0, 0, 0, 1});
    default:
        return Matrix({u, 0, 0, 0, 0, 0, u, 0, 0, u, 0, 0, 0, 0, 0, 1});
    }
}

ReaderProcess::Limits limitsOf(const std::string & path, const ModelOptions & options) {
    const std::uint64_t bytes = File(path).size();
    constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20, most = std::uint64_t{1} << 40;
    ReaderProcess::Limits limits = {options.memoryLimit, options.secondsLimit};
    if (limits.memory == 0) limits.memory = 1024 * mebibyte + 32 * std::min(bytes, most);
    if (!(limits.seconds > 0.0)) limits.seconds = 60.0 + double(bytes) / double(mebibyte);
    return limits;
}

} // namespace

const std::vector<std::string> & ModelFile::suffixes() {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> list;
        for (const auto & [suffix, format] : formats())
            list.push_back(suffix);
        return list;
    }();
    return all;
}

bool ModelFile::recognizes(const std::string & path) {
    return formats().count(suffixOf(path)) != 0;
}

Model ModelFile::read(const std::string & path, const ModelOptions & options) {
    if (!recognizes(path))
        throw InputException(L"is no model; choose a COLLADA, OBJ, glTF, GLB, FBX, 3DS, STL or PLY file, or "
                             L"placements in KML or KMZ",
                             path);
    if (options.metresPerUnit && !(*options.metresPerUnit > 0.0 && std::isfinite(*options.metresPerUnit)))
        throw InputException(L"has no unit of " + std::to_wstring(*options.metresPerUnit) +
                                 L" metres; choose one above 0",
                             path);
    if (!File::exists(path)) throw FileNotFoundException(L"file not found", path);
    if (!File::isFile(path)) throw InputException(L"is no regular file", path);
    const std::string suffix = suffixOf(path), whole = File::absolutePath(path);
    const ModelAnswer answer = ReaderProcess::read(whole, suffix, limitsOf(path, options));
    Model model;
    model.format = formats().at(suffix);
    model.leftOut = answer.leftOut;
    chooseAxes(answer, suffix, options, model);
    ModelTextures textures(answer, whole, options.textureFolders);
    try {
        ModelScene(answer, textures).build(toScene(model.up, model.metresPerUnit), model);
    } catch (const IOError & failure) {
        throw InputException(failure.message(), path);
    }
    return model;
}

} // namespace NBX
