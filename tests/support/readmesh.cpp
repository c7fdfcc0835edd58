#include "readmesh.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

using Vector = ReadMesh::Vector;

template <class Value> Value take(const std::string & bytes, std::size_t & at) {
    Value value{};
    if (at + sizeof value > bytes.size()) {
        ADD_FAILURE() << "the file ends early";
        return value;
    }
    std::memcpy(&value, bytes.data() + at, sizeof value);
    at += sizeof value;
    return value;
}

Vector takeVector(const std::string & bytes, std::size_t & at) {
    Vector v{};
    for (double & x : v)
        x = double(take<float>(bytes, at));
    return v;
}

/// "origin X Y Z", "scale S", "error E", "system NAME", in any order.
void takeNotes(std::istream & words, ReadMesh & mesh) {
    for (std::string word; words >> word;) {
        if (word == "origin") words >> mesh.origin[0] >> mesh.origin[1] >> mesh.origin[2];
        if (word == "scale") words >> mesh.scale;
        if (word == "error") words >> mesh.error;
        if (word == "system") words >> mesh.system;
    }
}

ReadMesh readObj(const std::string & text) {
    ReadMesh mesh;
    mesh.isYUp = true;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "#") {
            const bool isNote = line.rfind("# x", 0) != 0;
            if (isNote) takeNotes(words, mesh);
        } else if (word == "v") {
            Vector v{};
            EXPECT_TRUE(words >> v[0] >> v[1] >> v[2]) << line;
            mesh.positions.push_back(v);
        } else if (word == "vt") {
            std::array<double, 2> v{};
            EXPECT_TRUE(words >> v[0] >> v[1]) << line;
            mesh.coordinates.push_back(v);
        } else if (word == "mtllib") {
            words >> mesh.materials;
        } else if (word == "f") {
            std::array<unsigned, 3> triangle{};
            for (unsigned & corner : triangle) {
                std::string name;
                EXPECT_TRUE(words >> name) << line;
                const std::string number = std::to_string(std::stoul(name));
                EXPECT_EQ(mesh.coordinates.empty() ? number : number + "/" + number, name);
                corner = unsigned(std::stoul(name) - 1);
            }
            mesh.triangles.push_back(triangle);
        } else {
            EXPECT_EQ("usemtl", word) << line;
        }
    }
    return mesh;
}

ReadMesh readPly(const std::string & bytes) {
    ReadMesh mesh;
    std::size_t at = bytes.find("end_header\n") + 11, vertices = 0, faces = 0;
    std::istringstream lines(bytes.substr(0, at));
    std::string form;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word, what;
        words >> word;
        if (word == "comment") {
            if (line.rfind("comment x", 0) != 0) takeNotes(words, mesh);
        } else if (word == "element") {
            words >> what;
            words >> (what == "vertex" ? vertices : faces);
        } else {
            form += line + "\n";
        }
    }
    EXPECT_EQ("ply\nformat binary_little_endian 1.0\nproperty float x\nproperty float y\nproperty float z\n"
              "property list uchar uint vertex_indices\nend_header\n",
              form);
    for (std::size_t i = 0; i < vertices; ++i)
        mesh.positions.push_back(takeVector(bytes, at));
    for (std::size_t i = 0; i < faces; ++i) {
        EXPECT_EQ(3, take<std::uint8_t>(bytes, at));
        mesh.triangles.push_back(take<std::array<unsigned, 3>>(bytes, at));
    }
    EXPECT_EQ(bytes.size(), at);
    return mesh;
}

ReadMesh readStl(const std::string & bytes) {
    ReadMesh mesh;
    EXPECT_NE(0U, bytes.rfind("solid", 0));
    std::istringstream words(bytes.substr(0, 80));
    takeNotes(words, mesh);
    std::size_t at = 80;
    const auto count = take<std::uint32_t>(bytes, at);
    std::map<Vector, unsigned> numbers;
    for (unsigned i = 0; i < count; ++i) {
        mesh.normals.push_back(takeVector(bytes, at));
        std::array<unsigned, 3> triangle{};
        for (unsigned & corner : triangle) {
            const Vector v = takeVector(bytes, at);
            const auto [known, isNew] = numbers.try_emplace(v, unsigned(mesh.positions.size()));
            if (isNew) mesh.positions.push_back(v);
            corner = known->second;
        }
        mesh.triangles.push_back(triangle);
        EXPECT_EQ(0, take<std::uint16_t>(bytes, at));
    }
    EXPECT_EQ(bytes.size(), at);
    return mesh;
}

ReadMesh readGlb(const std::string & bytes) {
    ReadMesh mesh;
    mesh.isYUp = true;
    std::size_t at = 0;
    EXPECT_EQ(0x46546C67U, take<std::uint32_t>(bytes, at));
    EXPECT_EQ(2U, take<std::uint32_t>(bytes, at));
    EXPECT_EQ(bytes.size(), take<std::uint32_t>(bytes, at));
    const auto length = take<std::uint32_t>(bytes, at);
    EXPECT_EQ(0U, length % 4);
    EXPECT_EQ(0x4E4F534AU, take<std::uint32_t>(bytes, at));
    const auto json = nlohmann::json::parse(bytes.substr(at, length));
    at += length;
    const auto binary = take<std::uint32_t>(bytes, at);
    EXPECT_EQ(0U, binary % 4);
    EXPECT_EQ(0x004E4942U, take<std::uint32_t>(bytes, at));
    EXPECT_EQ(bytes.size(), at + binary);
    EXPECT_EQ(binary, json["buffers"][0]["byteLength"].get<unsigned>());

    const auto & extras = json["asset"]["extras"];
    mesh.origin = extras["origin"].get<Vector>();
    mesh.scale = extras["scale"];
    mesh.error = extras["error"];
    mesh.system = extras.value("system", "");
    const auto & primitive = json["meshes"][0]["primitives"][0];
    const auto startOf = [&](unsigned accessor) {
        const auto & view = json["bufferViews"][json["accessors"][accessor]["bufferView"].get<unsigned>()];
        return at + view["byteOffset"].get<std::size_t>();
    };
    const auto countOf = [&](unsigned accessor) {
        return json["accessors"][accessor]["count"].get<std::size_t>();
    };
    const unsigned positions = primitive["attributes"]["POSITION"], indices = primitive["indices"];
    std::size_t place = startOf(positions);
    Vector low, high;
    low.fill(std::numeric_limits<double>::max());
    high.fill(std::numeric_limits<double>::lowest());
    for (std::size_t i = 0; i < countOf(positions); ++i) {
        mesh.positions.push_back(takeVector(bytes, place));
        for (unsigned k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], mesh.positions.back()[k]);
            high[k] = std::max(high[k], mesh.positions.back()[k]);
        }
    }
    for (unsigned k = 0; k < 3; ++k) {
        EXPECT_EQ(float(low[k]), json["accessors"][positions]["min"][k].get<float>());
        EXPECT_EQ(float(high[k]), json["accessors"][positions]["max"][k].get<float>());
    }
    place = startOf(indices);
    for (std::size_t i = 0; i < countOf(indices) / 3; ++i)
        mesh.triangles.push_back(take<std::array<unsigned, 3>>(bytes, place));
    if (primitive["attributes"].contains("TEXCOORD_0")) {
        const unsigned coordinates = primitive["attributes"]["TEXCOORD_0"];
        place = startOf(coordinates);
        for (std::size_t i = 0; i < countOf(coordinates); ++i) {
            const auto [u, v] = take<std::array<float, 2>>(bytes, place);
            mesh.coordinates.push_back({double(u), 1.0 - double(v)});
        }
        EXPECT_EQ("image/jpeg", json["images"][0]["mimeType"]);
        const auto & view = json["bufferViews"][json["images"][0]["bufferView"].get<unsigned>()];
        mesh.picture = bytes.substr(at + view["byteOffset"].get<std::size_t>(), view["byteLength"]);
    }
    return mesh;
}

} // namespace

ReadMesh ReadMesh::read(const std::string & path) {
    const std::string bytes = readWhole(path), suffix = path.substr(path.size() - 4);
    ReadMesh mesh = suffix == ".obj"   ? readObj(bytes)
                    : suffix == ".ply" ? readPly(bytes)
                    : suffix == ".stl" ? readStl(bytes)
                                       : readGlb(bytes);
    for (const auto & triangle : mesh.triangles)
        for (const unsigned corner : triangle)
            EXPECT_LT(corner, mesh.positions.size());
    return mesh;
}

Vector ReadMesh::onMap(const Vector & p) const {
    const double north = isYUp ? -p[2] : p[1], up = isYUp ? p[1] : p[2];
    return {p[0] / scale + origin[0], north / scale + origin[1], up / scale + origin[2]};
}

std::vector<Vector> ReadMesh::mapPositions() const {
    std::vector<Vector> result;
    for (const Vector & position : positions)
        result.push_back(onMap(position));
    return result;
}

double ReadMesh::volume() const {
    double six = 0.0;
    for (const auto & t : triangles) {
        const Vector &a = positions[t[0]], &b = positions[t[1]], &c = positions[t[2]];
        six += a[0] * (b[1] * c[2] - b[2] * c[1]) + a[1] * (b[2] * c[0] - b[0] * c[2]) +
               a[2] * (b[0] * c[1] - b[1] * c[0]);
    }
    return six / 6.0;
}

std::size_t ReadMesh::openEdges() const {
    std::map<std::pair<Vector, Vector>, int> uses;
    for (const auto & t : triangles)
        for (unsigned k = 0; k < 3; ++k)
            ++uses[{positions[t[k]], positions[t[(k + 1) % 3]]}];
    std::size_t open = 0;
    for (const auto & [edge, count] : uses) {
        const auto back = uses.find({edge.second, edge.first});
        open += count != 1 || back == uses.end() || back->second != 1;
    }
    return open;
}
