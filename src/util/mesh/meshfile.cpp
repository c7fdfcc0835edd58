// Formats: Wavefront, Object Files (.obj), version 3.0; G. Turk, The PLY Polygon File Format, 1994; 3D
// Systems, StereoLithography Interface Specification, 1989; Khronos Group, glTF 2.0 Specification, 2021.

#include <zmt/util/mesh/meshfile.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/image/imagewriter.h>
#include <nbx/object/progress.h>

namespace ZMT::UTIL {

namespace {

static_assert(std::endian::native == std::endian::little, "all binary formats are little-endian");

using Position = std::array<float, 3>;
using Triangle = std::array<std::uint32_t, 3>;

/// Collects what is written in large pieces, and shows how much of the mesh is done.
class Output {
public:
    Output(NBX::AtomicFileWriter & file, const SurfaceMesh & mesh, NBX::Progress * progress)
        : file_(file), progress_(progress), total_(double(mesh.positions.size() + mesh.triangles.size())) {}

    void text(const std::string & text) { append(text.data(), text.size()); }
    template <class... Values> void print(const char * format, Values... values) {
        char line[256];
        const int length = std::snprintf(line, sizeof line, format, values...);
        append(line, std::size_t(std::clamp(length, 0, int(sizeof line) - 1)));
    }
    template <class Value> void value(const Value & value) { append(&value, sizeof value); }
    void append(const void * bytes, std::size_t count) {
        pending_.append(static_cast<const char *>(bytes), count);
        if (pending_.size() >= s_piece) flush();
    }
    void flush() {
        file_.write(pending_.data(), pending_.size());
        pending_.clear();
    }

    /// After each position and triangle; false once the user has cancelled.
    bool goOn() {
        constexpr std::uint64_t s_stride = 65536;
        if (++done_ % s_stride != 0 || !progress_) return true;
        return progress_->update(std::min(double(done_) / total_, 1.0) * progress_->totalValue());
    }

private:
    static constexpr std::size_t s_piece = 1 << 20;

    NBX::AtomicFileWriter & file_;
    NBX::Progress * progress_;
    double total_;
    std::uint64_t done_ = 0;
    std::string pending_;
};

/// From z up to y up.
Position yUp(const Position & p) {
    return {p[0], p[2], p[1] == 0.0f ? 0.0f : -p[1]};
}

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

/// What the positions mean, a line each.
std::vector<std::string> notes(const SurfaceMesh & mesh) {
    const auto & o = mesh.origin;
    std::vector<std::string> lines{"origin " + number(o.x) + " " + number(o.y) + " " + number(o.z),
                                   "scale " + number(mesh.scale), "error " + number(mesh.error)};
    if (!mesh.system.empty()) lines.push_back("system " + mesh.system);
    return lines;
}

bool writeObj(const SurfaceMesh & mesh, Output & out, const std::string & materials) {
    out.text("# x to the east, y up, z to the south; easting, northing and height are\n"
             "# x / scale + the first of origin, -z / scale + the second, y / scale + the third\n");
    for (const std::string & note : notes(mesh))
        out.text("# " + note + "\n");
    if (!materials.empty()) out.text("mtllib " + materials + "\nusemtl ground\n");
    for (const Position & position : mesh.positions) {
        const Position p = yUp(position);
        out.print("v %.9g %.9g %.9g\n", double(p[0]), double(p[1]), double(p[2]));
        if (!out.goOn()) return false;
    }
    for (const auto & t : mesh.textureCoordinates)
        out.print("vt %.9g %.9g\n", double(t[0]), double(t[1]));
    for (const Triangle & t : mesh.triangles) {
        const unsigned a = t[0] + 1, b = t[1] + 1, c = t[2] + 1;
        if (mesh.textureCoordinates.empty())
            out.print("f %u %u %u\n", a, b, c);
        else
            out.print("f %u/%u %u/%u %u/%u\n", a, a, b, b, c, c);
        if (!out.goOn()) return false;
    }
    return true;
}

bool writePly(const SurfaceMesh & mesh, Output & out) {
    out.text("ply\nformat binary_little_endian 1.0\ncomment x to the east, y to the north, z up\n");
    for (const std::string & note : notes(mesh))
        out.text("comment " + note + "\n");
    out.text("element vertex " + std::to_string(mesh.positions.size()) +
             "\nproperty float x\nproperty float y\nproperty float z\nelement face " +
             std::to_string(mesh.triangles.size()) +
             "\nproperty list uchar uint vertex_indices\nend_header\n");
    for (const Position & position : mesh.positions) {
        out.value(position);
        if (!out.goOn()) return false;
    }
    for (const Triangle & triangle : mesh.triangles) {
        out.value(std::uint8_t(3));
        out.value(triangle);
        if (!out.goOn()) return false;
    }
    return true;
}

Position normalOf(const SurfaceMesh & mesh, const Triangle & triangle) {
    const Position & a = mesh.positions[triangle[0]];
    double u[3], v[3];
    for (unsigned k = 0; k < 3; ++k) {
        u[k] = double(mesh.positions[triangle[1]][k]) - a[k];
        v[k] = double(mesh.positions[triangle[2]][k]) - a[k];
    }
    const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (!(length > 0.0)) return {};
    return {float(n[0] / length), float(n[1] / length), float(n[2] / length)};
}

bool writeStl(const SurfaceMesh & mesh, Output & out) {
    std::string header = "zmt"; // "solid" would make it a text
    for (const std::string & note : notes(mesh))
        if (header.size() + 1 + note.size() <= 80) header += " " + note;
    header.resize(80, ' ');
    out.text(header);
    out.value(static_cast<std::uint32_t>(mesh.triangles.size()));
    for (const Triangle & triangle : mesh.triangles) {
        out.value(normalOf(mesh, triangle));
        for (const std::uint32_t corner : triangle)
            out.value(mesh.positions[corner]);
        out.value(std::uint16_t(0));
        if (!out.goOn()) return false;
    }
    return true;
}

// --- GLB

/// The parts of the binary chunk, one after the other, each at a multiple of four bytes.
struct GlbLayout {
    GlbLayout(const SurfaceMesh & mesh, std::uint64_t pictureSize)
        : indices(mesh.triangles.size() * sizeof(Triangle)),
          positions(mesh.positions.size() * sizeof(Position)),
          coordinates(mesh.textureCoordinates.size() * 2 * sizeof(float)), picture(pictureSize) {}

    std::uint64_t length() const { return padded(indices + positions + coordinates + picture); }
    static std::uint64_t padded(std::uint64_t bytes) { return (bytes + 3) / 4 * 4; }

    std::uint64_t indices, positions, coordinates, picture; ///< bytes of each
};

std::string list(const Position & p) {
    return "[" + number(double(p[0])) + "," + number(double(p[1])) + "," + number(double(p[2])) + "]";
}

std::string boundsOf(const SurfaceMesh & mesh) {
    Position low = yUp(mesh.positions.front()), high = low;
    for (const Position & position : mesh.positions) {
        const Position p = yUp(position);
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], p[k]);
            high[k] = std::max(high[k], p[k]);
        }
    }
    return "\"min\":" + list(low) + ",\"max\":" + list(high);
}

std::string extrasOf(const SurfaceMesh & mesh) {
    const auto & o = mesh.origin;
    std::string text = "{\"origin\":[" + number(o.x) + "," + number(o.y) + "," + number(o.z) +
                       "],\"scale\":" + number(mesh.scale) + ",\"error\":" + number(mesh.error);
    // Short names of systems need no escapes.
    if (!mesh.system.empty()) text += ",\"system\":\"" + mesh.system + "\"";
    return text + "}";
}

std::string bufferView(std::uint64_t offset, std::uint64_t length, const char * target) {
    return "{\"buffer\":0,\"byteOffset\":" + std::to_string(offset) +
           ",\"byteLength\":" + std::to_string(length) + target + "}";
}

std::string glbText(const SurfaceMesh & mesh, const GlbLayout & layout, const MeshPicture * picture) {
    const std::string vertices = std::to_string(mesh.positions.size());
    std::string views = bufferView(0, layout.indices, ",\"target\":34963") + "," +
                        bufferView(layout.indices, layout.positions, ",\"target\":34962");
    std::string accessors =
        "{\"bufferView\":0,\"componentType\":5125,\"count\":" + std::to_string(mesh.triangles.size() * 3) +
        ",\"type\":\"SCALAR\"},{\"bufferView\":1,\"componentType\":5126,\"count\":" + vertices +
        ",\"type\":\"VEC3\"," + boundsOf(mesh) + "}";
    std::string attributes = "\"POSITION\":1", look = "\"baseColorFactor\":[0.7,0.7,0.7,1]", images;
    if (picture) {
        const std::uint64_t coordinates = layout.indices + layout.positions;
        views += "," + bufferView(coordinates, layout.coordinates, ",\"target\":34962") + "," +
                 bufferView(coordinates + layout.coordinates, layout.picture, "");
        accessors +=
            ",{\"bufferView\":2,\"componentType\":5126,\"count\":" + vertices + ",\"type\":\"VEC2\"}";
        attributes += ",\"TEXCOORD_0\":2";
        look = "\"baseColorTexture\":{\"index\":0}";
        const char * type = NBX::ImageWriter::isJPEG(picture->name) ? "image/jpeg" : "image/png";
        images = std::string(",\"images\":[{\"bufferView\":3,\"mimeType\":\"") + type +
                 "\"}],\"samplers\":[{\"magFilter\":9729,\"minFilter\":9987,\"wrapS\":33071,\"wrapT\":33071}]"
                 ",\"textures\":[{\"source\":0,\"sampler\":0}]";
    }
    return "{\"asset\":{\"version\":\"2.0\",\"generator\":\"zmt\",\"extras\":" + extrasOf(mesh) +
           "},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{\"mesh\":0}],\"meshes\":[{\"primitives\":["
           "{"
           "\"attributes\":{" +
           attributes + "},\"indices\":0,\"material\":0}]}],\"materials\":[{\"pbrMetallicRoughness\":{" +
           look + ",\"metallicFactor\":0,\"roughnessFactor\":1},\"doubleSided\":true}],\"accessors\":[" +
           accessors + "],\"bufferViews\":[" + views +
           "],\"buffers\":[{\"byteLength\":" + std::to_string(layout.length()) + "}]" + images + "}";
}

bool writeGlb(const SurfaceMesh & mesh, Output & out, const MeshPicture * picture) {
    constexpr std::uint32_t s_magic = 0x46546C67, s_json = 0x4E4F534A, s_binary = 0x004E4942, s_heads = 28;
    const GlbLayout layout(mesh, picture ? picture->file->size() : 0);
    std::string text = glbText(mesh, layout, picture);
    text.resize(GlbLayout::padded(text.size()), ' ');
    const auto length = static_cast<std::uint32_t>(layout.length());
    const auto textLength = static_cast<std::uint32_t>(text.size());
    for (const std::uint32_t word : {s_magic, 2u, s_heads + textLength + length, textLength, s_json})
        out.value(word);
    out.text(text);
    out.value(length);
    out.value(s_binary);
    for (const Triangle & triangle : mesh.triangles) {
        out.value(triangle);
        if (!out.goOn()) return false;
    }
    for (const Position & position : mesh.positions) {
        out.value(yUp(position));
        if (!out.goOn()) return false;
    }
    if (!picture) return true;
    for (const auto & [u, v] : mesh.textureCoordinates)
        out.value(std::array<float, 2>{u, 1.0f - v}); // from the upper left corner
    out.append(picture->file->pointer(), layout.picture);
    out.text(std::string(
        layout.length() - layout.indices - layout.positions - layout.coordinates - layout.picture, '\0'));
    return true;
}

} // namespace

std::optional<MeshFile::Format> MeshFile::formatOf(const std::string & path) {
    const std::size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] != '.') return {};
    std::string suffix = path.substr(dot + 1);
    for (char & letter : suffix)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    if (suffix == "obj") return Format::OBJ;
    if (suffix == "ply") return Format::PLY;
    if (suffix == "stl") return Format::STL;
    if (suffix == "glb") return Format::GLB;
    return {};
}

bool MeshFile::fits(const SurfaceMesh & mesh, Format format, std::uint64_t pictureBytes) {
    constexpr std::uint64_t s_most = 0xFFFFFFFFu, s_text = 4096; // of GLB, which is much shorter
    if (format == Format::STL) return mesh.triangles.size() <= s_most;
    if (format == Format::GLB) return GlbLayout(mesh, pictureBytes).length() <= s_most - s_text;
    return true;
}

bool MeshFile::write(const SurfaceMesh & mesh, Format format, NBX::AtomicFileWriter & file,
                     const MeshPicture * picture, const std::string & materials, NBX::Progress * progress) {
    Output out(file, mesh, progress);
    bool isDone = false;
    switch (format) {
    case Format::OBJ:
        isDone = writeObj(mesh, out, picture ? materials : "");
        break;
    case Format::PLY:
        isDone = writePly(mesh, out);
        break;
    case Format::STL:
        isDone = writeStl(mesh, out);
        break;
    case Format::GLB:
        isDone = writeGlb(mesh, out, picture);
        break;
    }
    out.flush();
    return isDone;
}

std::string MeshFile::materialText(const MeshPicture & picture) {
    return "newmtl ground\nKd 1 1 1\nKs 0 0 0\nillum 1\nmap_Kd " + picture.name + "\n";
}

} // namespace ZMT::UTIL
