// Writes the seeded city that the benchmarks of city models build and fly over: a KML file that places as
// many buildings as are asked for, 400 models of them as OBJ files, and their 400 textures of 1024 by 1024
// pixels as JPEG. The same in every run and on every machine but for the last bits of JPEG.
//
//     makecity FOLDER [BUILDINGS, 10000]
//     zmt build city FOLDER/city.kml --out city.city
//
// Models follow each other at random, so that neighbours share nothing, which is hard on what keeps textures.
// Of 320 facades every eighth is a bay of one storey that repeats along the walls, and every fiftieth a
// pattern of stones that repeats 80 to 240 times. 80 textures are roofs. Buildings are boxes, half of them
// with a gable and a third in the shape of an L; each placement has its own heading and scale.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/memoryimage.h>

namespace {

constexpr unsigned s_models = 400, s_facades = 320, s_roofs = 80, s_side = 1024;
constexpr double s_pitch = 30.0; ///< metres from one building to the next
constexpr double s_longitude = 13.4, s_latitude = 52.5, s_metresPerDegree = 111320.0;

/// A number of 32 bits that follows from three.
std::uint32_t hash(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    std::uint32_t h = a * 0x9E3779B1U ^ b * 0x85EBCA77U ^ c * 0xC2B2AE3DU;
    h = (h ^ (h >> 15)) * 0x2C1B3C6DU;
    h = (h ^ (h >> 12)) * 0x297A2D39U;
    return h ^ (h >> 15);
}

double between(double low, double high, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    return low + (high - low) * hash(a, b, c) / 4294967296.0;
}

bool isStone(unsigned facade) {
    return facade % 50 == 7;
}
bool isBay(unsigned facade) {
    return facade % 8 == 3 && !isStone(facade);
}

/// Pixels between the beginnings of two windows, or of two stones or tiles.
struct Raster {
    unsigned across, up;
};

Raster rasterOf(unsigned texture) {
    if (texture >= s_facades) return {64, 128};
    if (isStone(texture)) return {512, 256};
    if (isBay(texture)) return {s_side, s_side};
    return {s_side / (3 + texture % 6), s_side / (3 + texture % 9)};
}

/// Grain, and where the raster says so a darker window, stone or tile.
void writeTexture(const std::string & path, unsigned texture) {
    const NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(int(s_side), int(s_side), NBX::LS_RGB));
    const Raster raster = rasterOf(texture);
    const auto part = [texture](unsigned n) { return 90 + int(hash(texture, n, 1) % 120); };
    const int wall[3] = {part(0), part(1), part(2)};
    for (unsigned y = 0; y < s_side; ++y) {
        unsigned char * pixel = image->lineComponentsU8(int(y));
        for (unsigned x = 0; x < s_side; ++x, pixel += 3) {
            const unsigned column = x / raster.across, row = y / raster.up;
            const unsigned u = 8 * (x % raster.across) / raster.across, v = 8 * (y % raster.up) / raster.up;
            const bool isInside = u >= 2 && u < 6 && v >= 2 && v < 7;
            const int pane = isInside ? int(hash(column, row, texture) % 80) - 90 : 0;
            const int grain = int(hash(x / 4, y / 2, texture) % 24) + int(hash(x, y, texture) % 8) - 16;
            for (unsigned c = 0; c < 3; ++c)
                pixel[c] = static_cast<unsigned char>(std::clamp(wall[c] + pane + grain, 0, 255));
        }
    }
    const auto file = NBX::SO<NBX::JPEGWriter>(new NBX::JPEGWriter(85))->write(image.get());
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char *>(file->pointer()), std::streamsize(file->size()));
}

/// A model as the text of an OBJ file, y upwards.
class Building {
public:
    explicit Building(unsigned model)
        : model_(model), facade_(model % s_facades), width_(of(9, 16, 0)), depth_(of(9, 16, 1)),
          height_(of(4, 10, 2) * (model % 5 == 0 ? 4.0 : 1.0)) {
        text_ = "mtllib models.mtl\n";
        box(-width_ / 2, -depth_ / 2, width_ / 2, depth_ / 2, height_);
        if (model % 3 == 0) box(width_ / 2, -depth_ / 2, width_ / 2 + of(4, 7, 3), 0.0, height_ * 0.6);
    }
    const std::string & text() const { return text_; }

private:
    double of(double low, double high, unsigned what) const { return between(low, high, model_, what, 2); }

    /// Metres that a texture covers.
    double covered() const { return isStone(facade_) ? 0.25 : isBay(facade_) ? 3.0 : 12.0; }

    void corner(double x, double y, double z, double s, double t) {
        char line[160];
        std::snprintf(line, sizeof line, "v %.3f %.3f %.3f\nvt %.4f %.4f\n", x, y, z, s, t);
        text_ += line;
        ++corners_;
    }
    void face(unsigned sides) {
        text_ += "f";
        for (unsigned i = corners_ - sides + 1; i <= corners_; ++i)
            text_ += " " + std::to_string(i) + "/" + std::to_string(i);
        text_ += "\n";
    }
    void use(const char * kind, unsigned texture) {
        text_ += std::string("usemtl ") + kind + std::to_string(texture) + "\n";
    }

    /// From a to b, as seen from outside from the left to the right.
    void wall(double ax, double az, double bx, double bz, double height, double ridge) {
        const double length = std::hypot(bx - ax, bz - az), s = length / covered(), t = height / covered();
        corner(ax, 0, az, 0, 0);
        corner(bx, 0, bz, s, 0);
        corner(bx, height, bz, s, t);
        if (ridge > height) corner((ax + bx) / 2, ridge, (az + bz) / 2, s / 2, ridge / covered());
        corner(ax, height, az, 0, t);
        face(ridge > height ? 5 : 4);
    }

    void box(double x0, double z0, double x1, double z1, double height) {
        const double ridge = model_ % 2 == 0 ? height + of(2, 4, 4) : height;
        use("facade", facade_);
        wall(x0, z1, x1, z1, height, ridge);
        wall(x1, z1, x1, z0, height, height);
        wall(x1, z0, x0, z0, height, ridge);
        wall(x0, z0, x0, z1, height, height);
        use("roof", s_facades + model_ % s_roofs);
        const double middle = (x0 + x1) / 2, length = (z1 - z0) / 8.0;
        const double across = std::hypot(middle - x0, ridge - height) / 8.0;
        slope(x0, height, z0, z1, middle, ridge, length, across);
        slope(x1, height, z1, z0, middle, ridge, length, across);
    }
    /// From the eaves at x to the ridge, seen from outside.
    void slope(double x, double y, double from, double to, double ridgeX, double ridgeY, double length,
               double across) {
        corner(x, y, from, 0, 0);
        corner(x, y, to, length, 0);
        corner(ridgeX, ridgeY, to, length, across);
        corner(ridgeX, ridgeY, from, 0, across);
        face(4);
    }

    const unsigned model_, facade_;
    const double width_, depth_, height_;
    unsigned corners_ = 0;
    std::string text_;
};

std::string numbered(const char * name, unsigned number, const char * suffix) {
    return name + std::to_string(number) + suffix;
}

void writeModels(const std::string & folder) {
    std::ofstream materials(folder + "/models.mtl");
    for (unsigned i = 0; i < s_facades + s_roofs; ++i) {
        const std::string image = numbered("texture", i, ".jpg");
        materials << "newmtl " << (i < s_facades ? "facade" : "roof") << i << "\nKd 1 1 1\nmap_Kd " << image
                  << "\n";
        if (!std::filesystem::exists(folder + "/" + image)) writeTexture(folder + "/" + image, i);
    }
    for (unsigned i = 0; i < s_models; ++i)
        std::ofstream(folder + "/" + numbered("model", i, ".obj")) << Building(i).text();
}

void writePlacements(const std::string & path, unsigned buildings) {
    std::ofstream kml(path);
    kml << "<?xml version=\"1.0\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>\n";
    const auto side = static_cast<unsigned>(std::ceil(std::sqrt(buildings)));
    const double perDegree = s_metresPerDegree * std::cos(s_latitude * 3.14159265358979 / 180.0);
    for (unsigned i = 0; i < buildings; ++i) {
        const auto scale = [i](unsigned axis) { return between(0.8, 1.25, i, axis, 3); };
        char text[640];
        std::snprintf(
            text, sizeof text,
            "<Placemark><name>house %u</name><Model><altitudeMode>absolute</altitudeMode><Location>"
            "<longitude>%.8f</longitude><latitude>%.8f</latitude><altitude>35</altitude></Location>"
            "<Orientation><heading>%u</heading></Orientation><Scale><x>%.3f</x><y>%.3f</y><z>%.3f</z></Scale>"
            "<Link><href>model%u.obj</href></Link></Model></Placemark>\n",
            i, s_longitude + i % side * s_pitch / perDegree,
            s_latitude + i / side * s_pitch / s_metresPerDegree, hash(i, 5, 3) % 4 * 90 + hash(i, 6, 3) % 9,
            scale(0), scale(1), scale(2), hash(i, 7, 3) % s_models);
        kml << text;
    }
    kml << "</Document></kml>\n";
}

} // namespace

int main(int argc, char ** argv) {
    const int buildings = argc > 2 ? std::atoi(argv[2]) : 10000;
    if (argc < 2 || argc > 3 || buildings < 1 || buildings > 1000000) {
        std::fprintf(stderr, "usage: makecity FOLDER [BUILDINGS, at most 1000000]\n");
        return 2;
    }
    const std::string folder = argv[1];
    std::filesystem::create_directories(folder);
    writeModels(folder);
    writePlacements(folder + "/city.kml", unsigned(buildings));
    if (std::filesystem::exists(folder + "/city.kml")) return 0;
    std::fprintf(stderr, "%s: cannot be written\n", folder.c_str());
    return 1;
}
