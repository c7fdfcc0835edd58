// Lines on the ground do not shimmer while the eye moves: pictures of a slow flight are compared with others
// of four times the resolution, averaged.

#include <nbx/scene/view/shiftedprojection.h>

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
    /// Pictures of the flight in `scale` times the resolution, each the average of `side` by `side` that are
    /// shifted by parts of a pixel.
    std::vector<Darkness> flight(int scale, int side = 1) {
        resize(s_pixels * scale);
        std::vector<Darkness> pictures;
        for (int frame = 0; frame < frames(); ++frame) {
            Darkness & picture = pictures.emplace_back(std::size_t(s_pixels) * s_pixels);
            for (int sample = 0; sample < side * side; ++sample)
                addSample(picture, frame, scale, side, sample);
        }
        return pictures;
    }
    void addSample(Darkness & picture, int frame, int scale, int side, int sample) {
        const SO<NBX::Camera> eye = camera(frame);
        const auto shift = [&](int i) { return (i + 0.5) / side - 0.5; };
        eye->setProjection(
            SO<NBX::Projection>(
                new NBX::ShiftedProjection(eye->getProjection(), shift(sample % side), shift(sample / side)))
                .get());
        show(eye.get());
        canvas->setTextureBias(-std::log2(side));
        const SO<NBX::Image> image = settledPicture();
        const double weight = 255.0 / (scale * scale * side * side);
        for (int y = 0; y < s_pixels * scale; ++y)
            for (int x = 0; x < s_pixels * scale; ++x)
                picture[std::size_t(y / scale) * s_pixels + x / scale] +=
                    weight * (1.0 - image->getColor(x, y)[1]);
    }
    /// How far from references pixels are that lines touch: in the mean and in the 99th percentile.
    static std::pair<double, double> differences(const std::vector<Darkness> & pictures,
                                                 const std::vector<Darkness> & references) {
        std::vector<double> all;
        double sum = 0.0;
        for (std::size_t i = 0; i < pictures.size(); ++i)
            for (std::size_t k = 0; k < pictures[i].size(); ++k) {
                if (pictures[i][k] == 0.0 && references[i][k] == 0.0) continue;
                all.push_back(std::abs(pictures[i][k] - references[i][k]));
                sum += all.back();
            }
        EXPECT_GT(all.size(), 1000U);
        std::sort(all.begin(), all.end());
        return {sum / double(all.size()), all[all.size() * 99 / 100]};
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

/// With one sample of a pixel textures are averages of four texels, and of two levels of them, where the
/// references average what lies in a pixel, so that edges are softer: the differences have the bounds that
/// are reached, with little room. The line is narrow, with hardly a pixel that is not at an edge.
TEST_F(OverlayShimmerTest, SlowFlightsLookLikeFinerPictures) {
    const auto source = file(ZMT_DATA_DIR "/../tests/data/everest_contours.geojson");
    VectorTexture::setSamples(4); // as the programs do, with the same size of texels
    lay(source, "color=black, width=20m");
    const auto references = flight(s_finer), pictures = flight(1);
    const auto [mean, most] = differences(pictures, references);
    EXPECT_LE(mean, 10.5) << "of 255";
    EXPECT_LE(most, 39.0);
    EXPECT_GT(meanChange(references), 5.0) << "the flight moves";
    EXPECT_LE(meanChange(pictures), 1.5 * meanChange(references));
    // As the programs draw four samples of a pixel.
    Settings::setTextureError(0.25);
    const auto sampled = flight(1, 2);
    const auto [sampledMean, sampledMost] = differences(sampled, references);
    EXPECT_LE(sampledMean, 4.0);
    EXPECT_LE(sampledMost, 24.0);
    EXPECT_LE(meanChange(sampled), 1.5 * meanChange(references));
}

} // namespace
