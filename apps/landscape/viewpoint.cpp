#include "viewpoint.h"

#include "errors.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/util/summit.h>

namespace {

using Point = NBX::Vector3Base<double>;

constexpr unsigned s_largestSide = 16384;
/// No map is larger, in whatever unit; what is much larger is lost among the numbers of the scene.
constexpr double s_largestCoordinate = 1e12;

std::string text(double number) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", number);
    return digits;
}

/// Where to stand for a view, in scene coordinates with the heights exaggerated.
class ViewpointFinder {
public:
    explicit ViewpointFinder(const ViewedGround & ground)
        : ground_(ground), offset_(ZMT::CORE::LocalFrame(ground.grid.origin()).originInScene()) {
        const NBX::Bounds sceneBox =
            ZMT::CORE::LocalFrame(ground.grid.origin()).toScene(ground.grid.boundingBox());
        box_ = NBX::Bounds(scaled(sceneBox.getLLF()), scaled(sceneBox.getURB()));
        size_ = std::max(box_.diagonal().x, box_.diagonal().z);
    }

    Viewpoint find(const View & view) const {
        if (view.isLonLat && ground_.reference.wkt.empty())
            throw UsageError(
                "--lonlat needs a terrain with a coordinate system, and this one has none; leave "
                "it out, and give map coordinates");
        if (!view.coordinates) return named(view.name);
        return given(view.isLonLat ? onMap(*view.coordinates) : *view.coordinates);
    }

private:
    Point scaled(const Point & p) const { return {p.x, p.y * ground_.exaggeration, p.z}; }

    /// Eye and aim in map coordinates, whose places are longitudes and latitudes.
    std::array<double, 6> onMap(std::array<double, 6> c) const {
        const ZMT::RASTER::CoordinateSystem system(ground_.reference.wkt);
        for (double * place : {&c[0], &c[3]}) {
            const auto onMap = std::abs(place[1]) <= 90.0 ? system.fromLonLat({place[0], place[1]})
                                                          : std::optional<ZMT::RASTER::MapPlace>();
            if (!onMap)
                throw UsageError("--lonlat: " + ground_.reference.name +
                                 " has no coordinates for this longitude and latitude: " + text(place[0]) +
                                 "," + text(place[1]));
            place[0] = onMap->x;
            place[1] = onMap->y;
        }
        return c;
    }

    Viewpoint given(const std::array<double, 6> & c) const {
        const auto point = [this](double x, double y, double height) {
            return scaled(ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, height, y)));
        };
        return {point(c[0], c[1], c[2]), point(c[3], c[4], c[5])};
    }

    Viewpoint named(View::Name name) const {
        const Point centre = box_.center();
        if (name == View::Name::North)
            return {Point(centre.x, box_.getURB().y + size_ * 1.25, centre.z), centre};
        if (name == View::Name::CloseUp) return closeUp();
        return {centre + Point(size_ * 0.12, size_ * 0.66 + box_.diagonal().y, -size_ * 1.05),
                centre - Point(0.0, 0.0, size_ * 0.12)};
    }

    /// Over a slope, looking at the highest place around which all heights are known.
    Viewpoint closeUp() const {
        NBX::Bounds plan;
        const NBX::Bounds & interest = ground_.interest;
        if (interest.isDefined())
            plan = NBX::Bounds(interest.getLLF() - offset_, interest.getURB() - offset_);
        const auto highest = ZMT::UTIL::Summit::find(ground_.grid, plan);
        const Point summit = highest ? scaled(*highest + offset_) : box_.center();
        const double distance = size_ * 0.1;
        Point eye = summit + Point(-distance * 0.4, 0.0, -distance);
        eye.x = std::clamp(eye.x, box_.getLLF().x, box_.getURB().x);
        eye.y = summit.y + distance * 0.35;
        return {eye, summit - Point(0.0, distance * 0.1, 0.0)};
    }

    const ViewedGround & ground_;
    Point offset_; ///< from coordinates of the grid to the scene
    NBX::Bounds box_;
    double size_;
};

} // namespace

View parseView(const std::string & text) {
    if (text == "overview") return {View::Name::Overview, {}};
    if (text == "closeup") return {View::Name::CloseUp, {}};
    if (text == "north") return {View::Name::North, {}};
    std::array<double, 6> c{};
    char rest = 0;
    const int read = std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf,%lf,%lf%c", &c[0], &c[1], &c[2], &c[3], &c[4],
                                 &c[5], &rest);
    const bool isOnMap =
        std::all_of(c.begin(), c.end(), [](double v) { return std::abs(v) <= s_largestCoordinate; });
    if (read != 6 || !isOnMap)
        throw UsageError("--view must be overview, closeup, north or six numbers EX,EY,EZ,AX,AY,AZ, each at "
                         "most 1e12: " +
                         text);
    if (std::equal(c.begin(), c.begin() + 3, c.begin() + 3))
        throw UsageError("--view: eye and aim are the same point");
    return {View::Name::Overview, c};
}

PictureSize parsePictureSize(const std::string & text) {
    unsigned width = 0, height = 0;
    char rest = 0;
    const bool isSize = text.find('-') == std::string::npos &&
                        std::sscanf(text.c_str(), "%6ux%6u%c", &width, &height, &rest) == 2;
    if (!isSize || width < 1 || height < 1 || width > s_largestSide || height > s_largestSide)
        throw UsageError("--size must be WIDTHxHEIGHT, each from 1 to " + std::to_string(s_largestSide) +
                         ": " + text);
    return {width, height};
}

Viewpoint findViewpoint(const View & view, const ViewedGround & ground) {
    return ViewpointFinder(ground).find(view);
}

NBX::SO<NBX::Camera> makeCamera(const Viewpoint & viewpoint, const NBX::Bounds & box) {
    const auto & [eye, aim] = viewpoint;
    const double depth = (box.center() - eye).length() + box.diagonal().length();
    const double nearest = (box.nearestPoint(eye) - eye).length();
    const double near = std::max(nearest * 0.5, depth * 1e-4);
    NBX::SO<NBX::LookAt> lookAt(new NBX::LookAt(eye, aim, Point(0.0, 1.0, 0.0)));
    if (eye.x == aim.x && eye.z == aim.z) lookAt->setUp(Point(0.0, 0.0, 1.0));
    NBX::SO<NBX::Perspective> perspective(new NBX::Perspective(s_fieldOfView, near, depth));
    return new NBX::Camera(lookAt.get(), perspective.get());
}
