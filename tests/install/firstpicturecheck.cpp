// firstpicturecheck make HEIGHTS IMAGE: writes a hill and an image of four colours that lies on it.
// firstpicturecheck check PICTURE: tells whether the example drew the hill with the colours where they
// belong.

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/image.h>
#include <nbx/image/pngreader.h>
#include <nbx/math/color.h>

#include "support/smallgeotiff.h"

namespace {

bool g_passed = true;

void expect(bool holds, const char * what) {
    if (holds) return;
    std::fprintf(stderr, "firstpicturecheck: %s\n", what);
    g_passed = false;
}

enum Quarter { NorthWest, NorthEast, SouthWest, SouthEast };
constexpr std::array<std::array<int, 3>, 4> s_colors = {
    {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 0}}};

/// At map coordinates of real size, which single precision does not tell apart.
void makeInput(const char * heights, const char * image) {
    constexpr unsigned cells = 33, pixels = 64;
    SmallGeoTiff hill{cells, cells};
    for (unsigned y = 0; y < cells; ++y)
        for (unsigned x = 0; x < cells; ++x)
            hill.heights.push_back(100.0F - 0.2F * float((x - 16.0) * (x - 16.0) + (y - 16.0) * (y - 16.0)));
    std::ofstream(heights, std::ios::binary) << hill.encode();

    SmallGeoTiff quarters{pixels, pixels};
    quarters.pixels = SmallGeoTiff::Pixels::Colors;
    quarters.cell = hill.cell * cells / pixels;
    for (unsigned y = 0; y < pixels; ++y)
        for (unsigned x = 0; x < pixels; ++x)
            for (const int c : s_colors[y / (pixels / 2) * 2 + x / (pixels / 2)])
                quarters.colors.push_back(static_cast<std::uint8_t>(c));
    std::ofstream(image, std::ios::binary) << quarters.encode();
}

/// The pixels of one colour.
struct Patch {
    double pixels = 0.0, x = 0.0, y = 0.0; ///< number and sums
    double middleX() const { return x / pixels; }
    double middleY() const { return y / pixels; }
};

void checkPicture(const char * path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string text = bytes.str();
    const NBX::SO<NBX::MemoryDataResource> data(
        new NBX::MemoryDataResource(text.data(), static_cast<unsigned>(text.size())));
    const auto picture = NBX::SO<NBX::PNGReader>(new NBX::PNGReader)->read(data.get());
    expect(picture.get(), "there is a picture");
    if (!picture) return;

    std::array<Patch, 4> patches;
    double terrain = 0.0;
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 0; x < picture->width(); ++x) {
            const NBX::Color c = picture->getColor(x, y);
            const auto difference = [&](const std::array<int, 3> & color) {
                double sum = 0.0;
                for (int i = 0; i < 3; ++i)
                    sum += std::abs(c.data()[i] - color[std::size_t(i)] / 255.0);
                return sum;
            };
            if (difference({0, 0, 0}) < 0.1) continue;
            ++terrain;
            for (std::size_t i = 0; i < 4; ++i)
                if (difference(s_colors[i]) < 0.1) {
                    ++patches[i].pixels;
                    patches[i].x += x;
                    patches[i].y += y; // line 0 of a picture is the lowest one
                }
        }
    const double all = double(picture->width()) * picture->height();
    double colored = 0.0;
    for (const Patch & patch : patches) {
        expect(patch.pixels > 0.1 * terrain, "each quarter of the image is seen");
        colored += patch.pixels;
    }
    std::printf("terrain: %.3f of the picture; %.3f of it in the colours of the image\n", terrain / all,
                colored / terrain);
    expect(terrain > 0.15 * all && terrain < 0.6 * all, "the terrain fills the middle of the picture");
    expect(colored > 0.9 * terrain, "the terrain has the colours of the image");
    if (!g_passed) return;
    expect(patches[NorthWest].middleX() < patches[NorthEast].middleX(), "west is left in the north");
    expect(patches[SouthWest].middleX() < patches[SouthEast].middleX(), "west is left in the south");
    expect(patches[SouthWest].middleY() < patches[NorthWest].middleY(), "north is behind in the west");
    expect(patches[SouthEast].middleY() < patches[NorthEast].middleY(), "north is behind in the east");
}

} // namespace

int main(int argc, char ** argv) {
    if (argc == 4 && std::strcmp(argv[1], "make") == 0)
        makeInput(argv[2], argv[3]);
    else if (argc == 3 && std::strcmp(argv[1], "check") == 0)
        checkPicture(argv[2]);
    else
        expect(false, "make HEIGHTS IMAGE, or check PICTURE");
    return g_passed ? 0 : 1;
}
