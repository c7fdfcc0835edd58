// Lines on the ground do not shimmer while the eye moves: pictures of a slow flight are compared with others
// of four times the resolution, averaged.

#include <array>

#include "overlayplacestest.h"

using NBX::SO;

namespace {

constexpr int s_pixels = 128, s_finer = 4;

/// The whole flight takes seconds.
int frames() {
    return std::getenv("ZMT_TEST_CHANGES") ? 12 : 3;
}

/// How dark a picture is, row by row, from 0 to 255.
using Darkness = std::vector<double>;

class OverlayShimmerTest : public OverlayPlacesFixture {
protected:
    /// Looks down at the middle, and moves by less than a pixel with each frame.
    SO<NBX::Camera> camera(int frame) const {
        const NBX::Bounds box = terrain->boundingBox();
        const double way = frame / 2000.0;
        return new NBX::Camera(new NBX::LookAt(box.point(0.4 + way, 2.5, 0.2 + 0.6 * way),
                                               box.point(0.45 + way, 0.5, 0.5 + 0.6 * way)),
                               new NBX::Perspective(35.0, 50.0, 20000.0));
    }
    /// Pictures of the flight in `scale` times the resolution.
    std::vector<Darkness> flight(int scale) {
        resize(s_pixels * scale);
        std::vector<Darkness> pictures;
        for (int frame = 0; frame < frames(); ++frame) {
            show(camera(frame).get());
            const SO<NBX::Image> image = settledPicture();
            Darkness & picture = pictures.emplace_back(std::size_t(s_pixels) * s_pixels);
            for (int y = 0; y < s_pixels * scale; ++y)
                for (int x = 0; x < s_pixels * scale; ++x)
                    picture[std::size_t(y / scale) * s_pixels + x / scale] +=
                        255.0 * (1.0 - image->getColor(x, y)[1]) / (scale * scale);
        }
        return pictures;
    }
    static double meanChange(const std::vector<Darkness> & pictures) {
        double sum = 0.0, touched = 0.0;
        for (std::size_t i = 1; i < pictures.size(); ++i)
            for (std::size_t k = 0; k < pictures[i].size(); ++k) {
                sum += std::abs(pictures[i][k] - pictures[i - 1][k]);
                touched += pictures[i][k] > 0.0 || pictures[i - 1][k] > 0.0;
            }
        return sum / touched;
    }
};

/// Textures are averages of four texels, and of two levels of them, where the references average what lies in
/// a pixel, so that edges are softer: the differences have the bounds that are reached, with little room.
/// The line is narrow, with hardly a pixel that is not at an edge.
TEST_F(OverlayShimmerTest, SlowFlightsLookLikeFinerPictures) {
    const auto source = file(ZMT_DATA_DIR "/../tests/data/everest_contours.geojson");
    VectorTexture::setSamples(4); // as the programs do, with the same size of texels
    lay(source, "color=black, width=20m");
    const auto references = flight(s_finer), pictures = flight(1);
    std::vector<double> differences;
    double sum = 0.0;
    for (std::size_t i = 0; i < pictures.size(); ++i)
        for (std::size_t k = 0; k < pictures[i].size(); ++k) {
            if (pictures[i][k] == 0.0 && references[i][k] == 0.0) continue;
            differences.push_back(std::abs(pictures[i][k] - references[i][k]));
            sum += differences.back();
        }
    ASSERT_GT(differences.size(), 1000U);
    std::sort(differences.begin(), differences.end());
    EXPECT_LE(sum / double(differences.size()), 10.5) << "of 255";
    EXPECT_LE(differences[differences.size() * 99 / 100], 39.0);
    EXPECT_GT(meanChange(references), 5.0) << "the flight moves";
    EXPECT_LE(meanChange(pictures), 1.5 * meanChange(references));
}

} // namespace
