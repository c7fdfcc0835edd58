#include "picture.h"

#include "errors.h"

#include <cctype>
#include <cmath>
#include <cstdint>

#include "program/stage.h"

#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/gl/state/polygonoffsetgl.h>
#include <nbx/image/image.h>
#include <nbx/image/imagewriter.h>
#include <nbx/math/color.h>
#include <nbx/object/nbxtime.h>

namespace {

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

bool writePicture(NBX::GLCanvas & canvas, NBX::AtomicFileWriter & out, const std::string & path) {
    const NBX::SO<NBX::Image> picture = canvas.snapshot();
    if (!picture) throw DataError("there is no picture to save");
    const auto bytes = NBX::ImageWriter::encode(picture.get(), path);
    if (!bytes) throw DataError("the picture could not be encoded");
    out.write(bytes->pointer(), bytes->size());
    return !isSkyAlone(*picture);
}
