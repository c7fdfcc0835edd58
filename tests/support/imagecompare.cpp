#include "imagecompare.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngreader.h>
#include <nbx/image/pngwriter.h>
#include <nbx/math/color.h>

namespace {

namespace fs = std::filesystem;

constexpr double s_allowedShare = 0.001;

using Lab = std::array<double, 3>;

double linear(double c) {
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

double lightness(double t) {
    constexpr double delta = 6.0 / 29.0;
    return t > delta * delta * delta ? std::cbrt(t) : t / (3.0 * delta * delta) + 4.0 / 29.0;
}

Lab toLab(const NBX::Color & color) {
    const double r = linear(color[0]), g = linear(color[1]), b = linear(color[2]);
    const double x = lightness((0.4124564 * r + 0.3575761 * g + 0.1804375 * b) / 0.95047);
    const double y = lightness(0.2126729 * r + 0.7151522 * g + 0.0721750 * b);
    const double z = lightness((0.0193339 * r + 0.1191920 * g + 0.9503041 * b) / 1.08883);
    return {116.0 * y - 16.0, 500.0 * (x - y), 200.0 * (y - z)};
}

fs::path failureFolder() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path() / "golden_failures";
    fs::create_directories(folder);
    return folder;
}

void keepFailure(const std::string & actual, const std::string & golden, const std::string & name,
                 const NBX::SO<NBX::Image> & difference) {
    const fs::path folder = failureFolder();
    const auto overwrite = fs::copy_options::overwrite_existing;
    fs::copy_file(actual, folder / (name + ".actual.png"), overwrite);
    if (fs::exists(golden)) fs::copy_file(golden, folder / (name + ".expected.png"), overwrite);
    if (difference) writePng(*difference, (folder / (name + ".difference.png")).string());
}

std::string describe(const ImageDifference & difference) {
    if (!difference.isSameSize) return "the size differs";
    std::ostringstream text;
    text << difference.share * 100.0 << " % of the pixels differ, by at most " << difference.largest
         << " units";
    return text.str();
}

} // namespace

double colorDifference(const NBX::Color & a, const NBX::Color & b) {
    const Lab p = toLab(a), q = toLab(b);
    return std::hypot(p[0] - q[0], p[1] - q[1], p[2] - q[2]);
}

ImageDifference compareImages(const NBX::Image & actual, const NBX::Image & expected, double allowed) {
    ImageDifference result;
    result.isSameSize = actual.width() == expected.width() && actual.height() == expected.height();
    if (!result.isSameSize) return result;
    result.picture = new NBX::MemoryImage(actual.width(), actual.height(), NBX::LS_RGB);
    std::size_t different = 0;
    for (int y = 0; y < actual.height(); ++y)
        for (int x = 0; x < actual.width(); ++x) {
            const double d = colorDifference(actual.getColor(x, y), expected.getColor(x, y));
            const double pale = d > allowed ? std::max(0.0, 0.7 - d / 100.0) : 1.0;
            result.picture->setColor(x, y, NBX::Color(1.0, pale, pale));
            result.largest = std::max(result.largest, d);
            different += d > allowed;
        }
    const double pixels = double(actual.width()) * actual.height();
    result.share = pixels > 0.0 ? double(different) / pixels : 0.0;
    return result;
}

NBX::SO<NBX::Image> readPng(const std::string & path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string text = bytes.str();
    const NBX::SO<NBX::MemoryDataResource> data(
        new NBX::MemoryDataResource(text.data(), static_cast<unsigned>(text.size())));
    return NBX::SO<NBX::PNGReader>(new NBX::PNGReader)->read(data.get());
}

void writePng(const NBX::Image & image, const std::string & path) {
    const auto data = NBX::SO<NBX::PNGWriter>(new NBX::PNGWriter)->write(&image);
    std::ofstream(path, std::ios::binary).write(static_cast<const char *>(data->pointer()), data->size());
}

std::string compareWithGolden(const std::string & actualPath, const std::string & name) {
    const std::string golden = ZMT_DATA_DIR "/../tests/golden/" + name + ".png";
    if (std::getenv("ZMT_UPDATE_GOLDEN")) {
        fs::copy_file(actualPath, golden, fs::copy_options::overwrite_existing);
        return "";
    }
    const NBX::SO<NBX::Image> actual = readPng(actualPath);
    const NBX::SO<NBX::Image> expected = readPng(golden);
    if (!actual) return actualPath + " is no picture";
    if (!expected) {
        keepFailure(actualPath, golden, name, NBX::SO<NBX::Image>());
        return golden + " is no picture";
    }
    const ImageDifference difference = compareImages(*actual, *expected);
    if (difference.isSameSize && difference.share <= s_allowedShare) return "";
    keepFailure(actualPath, golden, name, difference.picture);
    return name + ": " + describe(difference) + "; see " + failureFolder().string();
}
