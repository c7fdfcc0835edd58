#include "imagecompare.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

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

/// Of a picture, a value for each pixel.
class Plane {
public:
    Plane(int width, int height) : width_(width), height_(height), values_(std::size_t(width) * height) {}

    double & at(int x, int y) { return values_[std::size_t(y) * width_ + x]; }
    double at(int x, int y) const { return values_[std::size_t(y) * width_ + x]; }
    Plane times(const Plane & other) const {
        Plane product(width_, height_);
        std::transform(values_.begin(), values_.end(), other.values_.begin(), product.values_.begin(),
                       std::multiplies<>());
        return product;
    }
    /// Every value is the mean of its window; the edges of the picture are continued.
    Plane filtered() const;

private:
    int width_, height_;
    std::vector<double> values_;
};

constexpr int s_windowSide = 11;
constexpr double s_windowDeviation = 1.5;
constexpr double s_k1 = 0.01, s_k2 = 0.03, s_range = 255.0;

std::array<double, s_windowSide> gaussian() {
    std::array<double, s_windowSide> weights;
    double sum = 0.0;
    for (int i = 0; i < s_windowSide; ++i) {
        const double distance = (i - s_windowSide / 2) / s_windowDeviation;
        sum += weights[std::size_t(i)] = std::exp(-0.5 * distance * distance);
    }
    for (double & weight : weights)
        weight /= sum;
    return weights;
}

Plane Plane::filtered() const {
    static const std::array<double, s_windowSide> weights = gaussian();
    constexpr int reach = s_windowSide / 2;
    Plane rows(width_, height_), result(width_, height_);
    std::vector<double> line(std::size_t(width_) + 2 * reach);
    for (int y = 0; y < height_; ++y) {
        for (int x = -reach; x < width_ + reach; ++x)
            line[std::size_t(x + reach)] = at(std::clamp(x, 0, width_ - 1), y);
        double * to = &rows.at(0, y);
        for (int i = 0; i < s_windowSide; ++i)
            for (int x = 0; x < width_; ++x)
                to[x] += weights[std::size_t(i)] * line[std::size_t(x + i)];
    }
    for (int y = 0; y < height_; ++y) {
        double * to = &result.at(0, y);
        for (int i = 0; i < s_windowSide; ++i) {
            const double * from = &rows.at(0, std::clamp(y + i - reach, 0, height_ - 1));
            for (int x = 0; x < width_; ++x)
                to[x] += weights[std::size_t(i)] * from[x];
        }
    }
    return result;
}

Plane lumaOf(const NBX::Image & image) {
    Plane luma(image.width(), image.height());
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const NBX::Color color = image.getColor(x, y);
            luma.at(x, y) = s_range * (0.299 * color[0] + 0.587 * color[1] + 0.114 * color[2]);
        }
    return luma;
}

/// The index of every pixel.
Plane structuralSimilarity(const Plane & a, const Plane & b, int width, int height) {
    const double c1 = (s_k1 * s_range) * (s_k1 * s_range), c2 = (s_k2 * s_range) * (s_k2 * s_range);
    const Plane meanA = a.filtered(), meanB = b.filtered();
    const Plane squareA = a.times(a).filtered(), squareB = b.times(b).filtered();
    const Plane product = a.times(b).filtered();
    Plane result(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double p = meanA.at(x, y), q = meanB.at(x, y);
            const double varianceP = squareA.at(x, y) - p * p, varianceQ = squareB.at(x, y) - q * q;
            const double covariance = product.at(x, y) - p * q;
            result.at(x, y) = (2.0 * p * q + c1) * (2.0 * covariance + c2) /
                              ((p * p + q * q + c1) * (varianceP + varianceQ + c2));
        }
    return result;
}

bool isColor(const NBX::Color & a, const NBX::Color & b) {
    const auto isSame = [](float p, float q) { return std::abs(p - q) < 0.5F / 255.0F; };
    return isSame(a[0], b[0]) && isSame(a[1], b[1]) && isSame(a[2], b[2]);
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

ModelLikeness compareModels(const NBX::Image & actual, const NBX::Image & expected,
                            const NBX::Color & background) {
    ModelLikeness result;
    const int width = actual.width(), height = actual.height();
    if (width != expected.width() || height != expected.height()) return result;
    const Plane similarity = structuralSimilarity(lumaOf(actual), lumaOf(expected), width, height);
    result.picture = new NBX::MemoryImage(width, height, NBX::LS_RGB);
    double sum = 0.0;
    std::size_t different = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool inActual = !isColor(actual.getColor(x, y), background);
            const bool inExpected = !isColor(expected.getColor(x, y), background);
            const double here = inActual || inExpected ? similarity.at(x, y) : 1.0;
            const float grey = float(std::clamp(here, 0.0, 1.0));
            const bool differs = inActual != inExpected;
            result.picture->setColor(x, y,
                                     differs ? NBX::Color(1.0F, 0.0F, 0.0F) : NBX::Color(grey, grey, grey));
            different += differs;
            if (!inActual && !inExpected) continue;
            ++result.shown;
            sum += here;
        }
    result.similarity = result.shown > 0 ? sum / double(result.shown) : 1.0;
    result.silhouettes = double(different) / (double(width) * height);
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
