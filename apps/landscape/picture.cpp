// Pictures of several samples are averages of pictures that are shifted by parts of a pixel, as A. Glassner,
// "Principles of Digital Image Synthesis", 1995, tells of regular patterns: sizes in pixels stay as they are,
// and textures become finer.

#include "picture.h"

#include "errors.h"
#include "landscape.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <vector>

#include "program/stage.h"

#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/gl/state/polygonoffsetgl.h>
#include <nbx/image/image.h>
#include <nbx/image/imagewriter.h>
#include <nbx/math/color.h>
#include <nbx/object/nbxtime.h>
#include <nbx/scene/view/shiftedprojection.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>

namespace {

using ZMT::CORE::TerrainPainterGLSettings;

constexpr double s_sky[] = {0.72, 0.81, 0.90};

/// What is drawn may lie in view with its box alone.
bool isSkyAlone(const NBX::Image & picture) {
    const auto isSky = [&](int x, int y) {
        const std::uint8_t * pixel = picture.pixelComponentsU8(x, y);
        for (int i = 0; i < 3; ++i)
            if (std::abs(pixel[i] - s_sky[i] * 255.0) > 1.0) return false;
        return true;
    };
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (!isSky(x, y)) return false;
    return true;
}

bool isAllowed(double error) {
    return std::isfinite(error) && error >= 0.0;
}

/// How much finer textures are for several samples of a pixel. More is nothing that can be seen.
constexpr unsigned s_finer = 2;

/// How many samples lie side by side; 0 for a number that is no square of such.
unsigned sideOf(unsigned samples) {
    for (unsigned side = 1; side <= 4; ++side)
        if (side * side == samples) return side;
    return 0;
}

/// Adds up pictures of one size, of bytes.
class PictureSum {
public:
    void add(const NBX::Image & picture) {
        const std::size_t width = lineBytes(picture);
        sums_.resize(width * std::size_t(picture.height()));
        for (int y = 0; y < picture.height(); ++y) {
            const unsigned char * line = picture.lineComponentsU8(y);
            std::uint16_t * sum = sums_.data() + width * std::size_t(y);
            for (std::size_t i = 0; i < width; ++i)
                sum[i] = static_cast<std::uint16_t>(sum[i] + line[i]);
        }
        ++count_;
    }
    void average(NBX::Image & target) const {
        const std::size_t width = lineBytes(target);
        for (int y = 0; y < target.height(); ++y) {
            unsigned char * line = target.lineComponentsU8(y);
            const std::uint16_t * sum = sums_.data() + width * std::size_t(y);
            for (std::size_t i = 0; i < width; ++i)
                line[i] = static_cast<unsigned char>((sum[i] + count_ / 2) / count_);
        }
    }

private:
    static std::size_t lineBytes(const NBX::Image & picture) {
        return std::size_t(picture.width()) * std::size_t(picture.numberOfLayers());
    }

    std::vector<std::uint16_t> sums_; ///< at most 257 bytes each
    unsigned count_ = 0;
};

/// A camera that is as before in the end.
class ShiftedCamera {
public:
    explicit ShiftedCamera(NBX::Camera & camera) : camera_(camera), projection_(camera.getProjection()) {}
    ~ShiftedCamera() { camera_.setProjection(projection_.get()); }
    ShiftedCamera(const ShiftedCamera &) = delete;
    ShiftedCamera & operator=(const ShiftedCamera &) = delete;

    /// In pixels.
    void shift(double right, double up) const {
        camera_.setProjection(new NBX::ShiftedProjection(projection_.get(), right, up));
    }

private:
    NBX::Camera & camera_;
    const NBX::SO<NBX::Projection> projection_;
};

NBX::SO<NBX::Image> snapshotOf(NBX::GLCanvas & canvas) {
    NBX::SO<NBX::Image> picture = canvas.snapshot();
    if (!picture) throw DataError("there is no picture to save");
    return picture;
}

} // namespace

void checkErrors(const AllowedErrors & errors) {
    if (!isAllowed(errors.geometry) || !isAllowed(errors.texture))
        throw UsageError("--geometry-error and --texture-error must be numbers of pixels from 0 on");
}

void Frames::add(const std::function<void()> & draw) {
    ZMT::CORE::PatchInspectorGL::reset();
    const Stage drawing(L"draw");
    const double start = NBX::NBXTime::now();
    draw();
    lastMilliseconds = (NBX::NBXTime::now() - start) * 1000.0;
    drawn = ZMT::CORE::PatchInspectorGL::statistics();
    missingTiles = drawn.missingTiles;
    ++count;
}

void prepareCanvas(NBX::GLCanvas & canvas) {
    canvas.setBackgroundColor(NBX::Color(s_sky[0], s_sky[1], s_sky[2]));
    canvas.setRenderingMode(1);
}

NBX::SO<NBX::Attribute> makeWireframe() {
    return new NBX::PolygonModeGL(NBX::PolygonModeGL::M_Line);
}

NBX::SO<NBX::SceneThing> makeHidingSurface(const NBX::SO<NBX::SceneThing> & node) {
    NBX::SO<NBX::SceneThing> surface(new NBX::SceneThing);
    surface->append(NBX::ColorBufferGL::newLock(false, false, false, false));
    // Behind its own edges.
    surface->append(new NBX::PolygonOffsetGL(NBX::PolygonOffsetGL::F_Filled, 1.0, 1.0));
    surface->append(node.get());
    return surface;
}

void checkPictureName(const std::string & option, const std::string & path) {
    std::string suffix = NBX::File::extensionName(path);
    for (char & letter : suffix)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    if (suffix.empty() || suffix == "png" || NBX::ImageWriter::isJPEG(path)) return;
    throw UsageError(
        option + ": pictures are PNG or JPEG files; choose a name that ends in png, jpg or jpeg: " + path);
}

void checkSamples(unsigned samples) {
    if (sideOf(samples) == 0) throw UsageError("--samples: a pixel has 1, 4, 9 or 16 samples");
}

FinerTextures::FinerTextures(NBX::GLCanvas & canvas, Landscape & landscape, unsigned samples)
    : canvas_(canvas), landscape_(landscape), error_(TerrainPainterGLSettings::getTextureError()) {
    const unsigned fineness = samples > 1 ? s_finer : 1;
    canvas_.setTextureBias(-std::log2(sideOf(samples)));
    TerrainPainterGLSettings::setTextureError(error_ / fineness);
    landscape_.overlays().setFineness(fineness);
}

FinerTextures::~FinerTextures() {
    canvas_.setTextureBias(0.0);
    TerrainPainterGLSettings::setTextureError(error_);
    landscape_.overlays().setFineness(1);
}

NBX::SO<NBX::Image> sampledPicture(NBX::GLCanvas & canvas, NBX::Camera & camera, unsigned samples,
                                   const std::function<void()> & settle) {
    if (samples == 1) {
        settle();
        return snapshotOf(canvas);
    }
    const unsigned side = sideOf(samples);
    const ShiftedCamera shifted(camera);
    NBX::SO<NBX::Image> picture;
    PictureSum sum;
    for (unsigned i = 0; i < samples; ++i) {
        const auto place = [&](unsigned k) { return (k + 0.5) / side - 0.5; };
        shifted.shift(place(i % side), place(i / side));
        settle();
        picture = snapshotOf(canvas);
        sum.add(*picture);
    }
    sum.average(*picture);
    return picture;
}

bool writePicture(const NBX::SO<NBX::Image> & picture, NBX::AtomicFileWriter & out,
                  const std::string & path) {
    const auto bytes = NBX::ImageWriter::encode(picture.get(), path);
    if (!bytes) throw DataError("the picture could not be encoded");
    out.write(bytes->pointer(), bytes->size());
    return !isSkyAlone(*picture);
}
