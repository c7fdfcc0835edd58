#include "picture.h"

#include "commands.h"

#include <cmath>

#include <CLI/CLI.hpp>

#include <nbx/data/memorydataresource.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/image/image.h>
#include <nbx/image/pngwriter.h>
#include <nbx/math/color.h>

namespace {

bool isAllowed(double error) {
    return std::isfinite(error) && error >= 0.0;
}

} // namespace

void addErrorOptions(CLI::App & command, AllowedErrors & errors) {
    command.add_option("--geometry-error", errors.geometry, "Allowed error of the geometry, in pixels")
        ->capture_default_str();
    command.add_option("--texture-error", errors.texture, "Allowed size of a texel, in pixels")
        ->capture_default_str();
}

void checkErrors(const AllowedErrors & errors) {
    if (!isAllowed(errors.geometry) || !isAllowed(errors.texture))
        throw UsageError("--geometry-error and --texture-error must be numbers of pixels from 0 on");
}

void prepareCanvas(NBX::GLCanvas & canvas) {
    canvas.setBackgroundColor(NBX::Color(0.72, 0.81, 0.90));
    canvas.setRenderingMode(1);
}

NBX::SO<NBX::Attribute> makeWireframe() {
    return new NBX::PolygonModeGL(NBX::PolygonModeGL::M_Line);
}

void writePicture(NBX::GLCanvas & canvas, NBX::AtomicFileWriter & out) {
    const NBX::SO<NBX::Image> picture = canvas.snapshot();
    if (!picture) throw DataError("there is no picture to save");
    const auto png = NBX::SO<NBX::PNGWriter>(new NBX::PNGWriter)->write(picture.get());
    if (!png) throw DataError("the picture could not be encoded");
    out.write(png->pointer(), png->size());
}
