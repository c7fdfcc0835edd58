#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nbx/data/memorydataresource.h>
#include <zmt/util/mesh/surfacemesh.h>

namespace NBX {
class AtomicFileWriter;
class Progress;
} // namespace NBX

namespace ZMT::UTIL {

/// The picture of a mesh: for formats that have it inside its file, else the name of the file beside.
struct MeshPicture {
    std::string name;                      ///< such as "ground.jpg", which tells the format: JPEG or PNG
    NBX::SO<NBX::MemoryDataResource> file; ///< its bytes
};

/// Meshes in files that other programs read. OBJ and GLB have y up and z to the south, PLY and STL, both
/// binary, z up: all are right-handed. Origin, scale, coordinate system and error stand in a comment of OBJ
/// and PLY, in the 80 bytes that begin STL, and in the "extras" of the asset of GLB.
class MeshFile {
public:
    enum class Format { OBJ, PLY, STL, GLB };

    /// By the suffix, in upper or lower case.
    static std::optional<Format> formatOf(const std::string & path);
    /// Whether files of the format have texture coordinates and a picture.
    static bool takesPicture(Format format) { return format == Format::OBJ || format == Format::GLB; }
    /// Whether the format can hold the mesh: GLB ends at 4 GiB, STL at 2^32 triangles.
    static bool fits(const SurfaceMesh & mesh, Format format, std::uint64_t pictureBytes = 0);

    /// `picture` may be null. An OBJ file with one names the file `materials`, of which `materialText` is the
    /// text. False when `progress` was cancelled, whose value goes from 0 to its total. Throws
    /// `NBX::IOException`.
    static bool write(const SurfaceMesh & mesh, Format format, NBX::AtomicFileWriter & file,
                      const MeshPicture * picture = nullptr, const std::string & materials = "",
                      NBX::Progress * progress = nullptr);
    static std::string materialText(const MeshPicture & picture);
};

} // namespace ZMT::UTIL
