// Reads the raster, refines it as one mesh, lays the image on it, and writes all files aside; they get their
// names when all has gone well, the mesh last.

#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "landscape/commandoptions.h"
#include "landscape/outputfiles.h"
#include "landscape/reports.h"
#include "landscape/step.h"
#include "landscape/terraininput.h"

#include <nbx/data/atomicfilewriter.h>
#include <nbx/image/imagewriter.h>
#include <nbx/object/exception.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/gdal/rasterwarp.h>
#include <zmt/util/mesh/meshfile.h>
#include <zmt/util/mesh/meshimage.h>
#include <zmt/util/mesh/rastermesh.h>

namespace {

using NBX::AtomicFileWriter;
using ZMT::UTIL::MeshFile;
using ZMT::UTIL::MeshPicture;
using ZMT::UTIL::SurfaceMesh;

struct MeshOptions {
    std::string raster, out, image;
    std::optional<double> error, base, width;
    std::optional<std::uint64_t> triangles;
    std::optional<unsigned> threads;
    bool fillVoids = false;
};

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.12g", value);
    return text;
}

MeshFile::Format checkOptions(const MeshOptions & options) {
    const auto format = MeshFile::formatOf(options.out);
    if (!format) throw UsageError(options.out + ": the name of a mesh ends with .obj, .ply, .stl or .glb");
    if (options.error.has_value() == options.triangles.has_value())
        throw UsageError(options.error ? "--error and --triangles are two ways to end; leave one of them out"
                                       : "give --error, or --triangles");
    if (options.error && !(*options.error >= 0.0 && std::isfinite(*options.error)))
        throw UsageError("--error: must be a length from 0 on: " + number(*options.error));
    if (options.triangles && *options.triangles < 2)
        throw UsageError("--triangles: a mesh has at least 2: " + std::to_string(*options.triangles));
    if (options.base && !std::isfinite(*options.base))
        throw UsageError("--base: must be a height: " + number(*options.base));
    if (options.width && !(*options.width > 0.0 && std::isfinite(*options.width)))
        throw UsageError("--width: must be a length above 0: " + number(*options.width));
    constexpr unsigned s_mostThreads = 1024;
    if (options.threads && (*options.threads < 1 || *options.threads > s_mostThreads))
        throw UsageError("--threads: must be from 1 to " + std::to_string(s_mostThreads) + ": " +
                         std::to_string(*options.threads));
    if (!options.image.empty() && !MeshFile::takesPicture(*format))
        throw UsageError("--image: STL and PLY files have no place for it; write .glb or .obj");
    if (isBuiltTerrain(options.raster)) throw UsageError(options.raster + ": is built; give the heights");
    return *format;
}

constexpr const char * s_pictureSuffix = ".jpg"; ///< which all programs for models read

/// Beside the mesh, with its name and another suffix.
std::string besides(const std::string & mesh, const char * suffix) {
    return mesh.substr(0, mesh.find_last_of('.')) + suffix;
}

std::string nameOf(const std::string & path) {
    return path.substr(path.find_last_of('/') + 1);
}

/// The heights on their own cells, in degrees as well.
ZMT::RASTER::GeoRaster readHeights(const MeshOptions & options) {
    TerrainReading how;
    how.native = true;
    how.fillVoids = options.fillVoids;
    ZMT::RASTER::GeoRaster raster = readTerrainRaster(options.raster, how);
    if (!raster.reference.isGeographic) raster = ZMT::RASTER::RasterWarp::toMetric(raster);
    const double lowest = raster.raster->minValue();
    if (options.base && !(float(*options.base) < float(lowest)))
        throw UsageError("--base: must lie below all heights, the lowest of which is " + number(lowest) +
                         ": " + number(*options.base));
    return raster;
}

SurfaceMesh makeMesh(const ZMT::RASTER::GeoRaster & raster, const MeshOptions & options) {
    ZMT::UTIL::RasterMesh::Options how;
    if (options.error) how.goal.error = *options.error;
    if (options.triangles) how.goal.triangles = *options.triangles;
    how.base = options.base;
    how.width = options.width;
    how.threads = options.threads.value_or(std::max(1U, std::thread::hardware_concurrency()));
    NBX::Progress progress("refining");
    std::optional<SurfaceMesh> mesh;
    try {
        mesh = ZMT::UTIL::RasterMesh::create(raster, how, &progress);
    } catch (const NBX::InputException & error) {
        throw DataError(options.raster + ": " + messageOf(error));
    } catch (const std::length_error &) {
        throw DataError(options.raster + ": the raster is too large for one mesh; cut out a part with "
                                         "gdal_translate");
    }
    if (!mesh) throw DataError("cancelled");
    progress.finish();
    if (mesh->triangles.empty())
        throw DataError(options.raster + ": no three heights lie side by side; check its no-data value");
    if (std::isinf(mesh->error))
        throw DataError("--triangles: " + std::to_string(*options.triangles) +
                        " are too few for the outline of the heights; give more, or --fill-voids");
    if (options.error && mesh->error > *options.error)
        writeError("warning: the error is " + number(mesh->error) +
                   ", as the numbers of the file are rounded");
    return *mesh;
}

/// The picture of the mesh, whose coordinates it gets.
MeshPicture layImage(SurfaceMesh & mesh, const MeshOptions & options) {
    Step step("reading " + options.image);
    const auto image = ZMT::RASTER::GeoFile::openImage(options.image, mesh.wkt);
    const auto * file = dynamic_cast<const ZMT::RASTER::ImageFilePyramid *>(image.get());
    const bool isPlaced = !file || file->reference().isGeoreferenced;
    const NBX::SO<NBX::Image> part = ZMT::UTIL::MeshImage::lay(mesh, *image, isPlaced);
    Reports::throwFirst();
    if (!part) throw DataError(options.image + ": the image lies elsewhere; choose one that covers the area");
    MeshPicture picture;
    picture.name = nameOf(besides(options.out, s_pictureSuffix));
    picture.file = NBX::ImageWriter::encode(part.get(), picture.name);
    if (!picture.file) throw DataError(options.image + ": the image is empty; choose another one");
    step.finish();
    return picture;
}

void tell(const SurfaceMesh & mesh, const MeshOptions & options) {
    std::printf("%s: %zu triangles, %zu vertices, error %.6g\norigin %.12g %.12g %.12g%s%s\n",
                options.out.c_str(), mesh.triangles.size(), mesh.positions.size(), mesh.error, mesh.origin.x,
                mesh.origin.y, mesh.origin.z, mesh.system.empty() ? "" : " ", mesh.system.c_str());
    if (mesh.scale != 1.0) std::printf("scale %.12g\n", mesh.scale);
}

/// A file beside the mesh.
class SideFile {
public:
    SideFile(const std::string & path, const void * bytes, std::size_t size) : writer_(path) {
        writer_.write(bytes, size);
    }
    void commit() { writer_.commit(); }

private:
    AtomicFileWriter writer_;
};

void runMesh(const MeshOptions & options) {
    const MeshFile::Format format = checkOptions(options);
    const bool hasMaterials = format == MeshFile::Format::OBJ && !options.image.empty();
    const std::vector<NamedFile> inputs{{"the raster", options.raster}, {"--image", options.image}};
    std::vector<NamedFile> outputs{{"the mesh", options.out}};
    if (hasMaterials) {
        outputs.push_back({"the material", besides(options.out, ".mtl")});
        outputs.push_back({"the picture", besides(options.out, s_pictureSuffix)});
    }
    checkOutputs(inputs, outputs);
    if (!options.image.empty()) ZMT::RASTER::GeoFile::openImage(options.image); // before the long work
    AtomicFileWriter file(options.out);

    SurfaceMesh mesh = makeMesh(readHeights(options), options);
    std::optional<MeshPicture> picture;
    if (!options.image.empty()) picture = layImage(mesh, options);
    if (!MeshFile::fits(mesh, format, picture ? picture->file->size() : 0))
        throw DataError(options.out +
                        ": the mesh is too large for its format; allow a larger error, or write "
                        ".ply");
    std::optional<SideFile> materials, image;
    if (hasMaterials) {
        const std::string text = MeshFile::materialText(*picture);
        materials.emplace(outputs[1].path, text.data(), text.size());
        image.emplace(outputs[2].path, picture->file->pointer(), picture->file->size());
    }
    NBX::Progress writing("writing " + options.out);
    if (!MeshFile::write(mesh, format, file, picture ? &*picture : nullptr,
                         nameOf(besides(options.out, ".mtl")), &writing))
        throw DataError("cancelled");
    writing.finish();
    if (image) image->commit();
    if (materials) materials->commit();
    file.commit();
    tell(mesh, options);
}

} // namespace

void addMeshCommand(CLI::App & app) {
    auto * command = app.add_subcommand("mesh", "Makes one mesh of a whole height raster.");
    const auto options = std::make_shared<MeshOptions>();
    command->add_option("raster", options->raster, "Height raster")->required()->type_name("RASTER");
    command
        ->add_option("out", options->out,
                     "Mesh: .obj and .glb with y up and z to the south, .stl and .ply with z up and y to the "
                     "north; positions count from an origin that the file tells")
        ->required()
        ->type_name("OUT");
    command->add_option("--error", options->error,
                        "Largest vertical distance of a height of the raster from the mesh");
    command->add_option(
        "--triangles", options->triangles,
        "Triangles of the surface, which is as close as they can make it; walls and underside "
        "come on top");
    command->add_option("--base", options->base,
                        "Height of an underside: with it, and walls, the mesh is a closed body, as printers "
                        "need it; a negative one as --base=-10");
    command->add_option("--width", options->width,
                        "Scale the mesh to this width from west to east, such as 150 for printers that take "
                        "numbers for millimetres");
    command
        ->add_option(
            "--image", options->image,
            "Image on the mesh, for .glb and .obj: where it lies on the map, or all over the mesh if "
            "it does not say; at most 4096 by 4096 texels of it")
        ->type_name("FILE");
    command->add_option("--threads", options->threads,
                        "Threads that measure the mesh, without it one for each core; the refinement, one "
                        "step after the other, takes one");
    addVoidOption(*command, options->fillVoids);
    addOutputNote(*command);
    command->callback([options] { runMesh(*options); });
}
