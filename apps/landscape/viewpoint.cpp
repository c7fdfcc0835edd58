// Texts and names of views become an eye and an aim. What is given in map coordinates goes to scene
// coordinates first, where heights are exaggerated; all geometry is done there.

#include "viewpoint.h"

#include "errors.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

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
constexpr double s_steepest = 89.999;    ///< degrees; straight down nothing is up
constexpr double s_overviewPitch = 35.0; ///< degrees below the horizon
constexpr double s_overviewMargin =
    0.03; ///< of half the picture, on the sides that the ground comes nearest to

std::string text(double number) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", number);
    return digits;
}

/// Where to stand for a view, in scene coordinates with the heights exaggerated.
class ViewpointFinder {
public:
    explicit ViewpointFinder(const ViewedGround & ground, double aspect = 1.0)
        : ground_(ground), aspect_(aspect),
          offset_(ZMT::CORE::LocalFrame(ground.grid.origin()).originInScene()) {
        const NBX::Bounds sceneBox =
            ZMT::CORE::LocalFrame(ground.grid.origin()).toScene(ground.grid.boundingBox());
        box_ = NBX::Bounds(scaled(sceneBox.getLLF()), scaled(sceneBox.getURB()));
        box_ += ground.models;
        size_ = std::max(box_.diagonal().x, box_.diagonal().z);
    }

    Viewpoint find(const View & view) const {
        if (view.isLonLat && ground_.reference.wkt.empty()) throwNoSystem();
        if (!view.coordinates) return named(view.name);
        return given(view.isLonLat ? inMapCoordinates(view) : view);
    }

    /// In scene coordinates; nothing where there is no ground.
    std::optional<double> groundAt(double x, double y) const {
        const double height = ground_.terrain.calculateHeight(Point(x, 0.0, y), false);
        if (ground_.terrain.isUndefinedHeightValue(height)) return {};
        return scaled(ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, height, y))).y;
    }

private:
    [[noreturn]] void throwNoSystem() const {
        if (!ground_.city.empty())
            throw UsageError("--lonlat: " + ground_.city +
                             " has no coordinate system; give map coordinates without --lonlat, or build it "
                             "with --system");
        throw UsageError("--lonlat needs a terrain with a coordinate system, and this one has none; leave "
                         "it out, and give map coordinates");
    }

    Point scaled(const Point & p) const { return {p.x, p.y * ground_.exaggeration, p.z}; }

    /// A view whose places are longitudes and latitudes.
    View inMapCoordinates(View view) const {
        const ZMT::RASTER::CoordinateSystem system(ground_.reference.wkt);
        // With a direction the eye has no place.
        for (unsigned first = view.direction ? 3 : 0; first < 6; first += 3) {
            double * const place = view.coordinates->data() + first;
            const auto onMap = std::abs(place[1]) <= 90.0 ? system.fromLonLat({place[0], place[1]})
                                                          : std::optional<ZMT::RASTER::MapPlace>();
            if (!onMap)
                throw UsageError("--lonlat: " + ground_.reference.name +
                                 " has no coordinates for this longitude and latitude: " + text(place[0]) +
                                 "," + text(place[1]));
            place[0] = onMap->x;
            place[1] = onMap->y;
        }
        return view;
    }

    Viewpoint given(const View & view) const {
        const auto & c = *view.coordinates;
        const Point aim = place(c[3], c[4], c[5], view.isAimAboveGround);
        if (view.direction) return {aim - towards(*view.direction), aim};
        return {place(c[0], c[1], c[2], view.isEyeAboveGround), aim};
    }

    /// In scene coordinates.
    Point place(double x, double y, double height, bool isAboveGround) const {
        if (!isAboveGround) return scaled(ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, height, y)));
        const auto ground = groundAt(x, y);
        if (!ground)
            throw UsageError("--view: there is no ground at " + text(x) + "," + text(y) +
                             " above which a height could count; choose another place, or six numbers");
        const Point onGround = ZMT::CORE::GeoTransformation::geo2nbxTf(Point(x, 0.0, y));
        return {onGround.x, *ground + height * ground_.exaggeration, onGround.z};
    }

    static Point towards(const View::Direction & direction) {
        // Straight down, the azimuth is what is up in the picture.
        const double pitch = radians(std::clamp(direction.pitch, -s_steepest, s_steepest));
        const double azimuth = radians(direction.azimuth);
        return Point(std::sin(azimuth) * std::cos(pitch), -std::sin(pitch),
                     std::cos(azimuth) * std::cos(pitch)) *
               direction.distance;
    }

    Viewpoint named(View::Name name) const {
        const Point centre = box_.center();
        if (name == View::Name::North)
            return {Point(centre.x, box_.getURB().y + size_ * 1.25, centre.z), centre};
        return name == View::Name::CloseUp ? closeUp() : overview();
    }

    /// From the south, as near as all of the box is in the picture.
    Viewpoint overview() const {
        const double pitch = radians(s_overviewPitch);
        const Point forward(0.0, -std::sin(pitch), std::cos(pitch));
        const Point up(0.0, std::cos(pitch), std::sin(pitch));
        const double slopeUp = (1.0 - s_overviewMargin) * std::tan(radians(s_fieldOfView / 2.0));
        const double slopeAside = slopeUp * aspect_;
        const Point centre = box_.center();
        const Point half = box_.diagonal() * 0.5;
        // How far the sides of the view have to be moved, for a view from the centre, until no corner lies
        // outside. East and west are alike.
        double above = 0.0, below = 0.0, aside = 0.0;
        for (const double y : {-half.y, half.y})
            for (const double z : {-half.z, half.z}) {
                const Point corner(half.x, y, z);
                above = std::max(above, corner.dot(up) - slopeUp * corner.dot(forward));
                below = std::max(below, -corner.dot(up) - slopeUp * corner.dot(forward));
                aside = std::max(aside, corner.x - slopeAside * corner.dot(forward));
            }
        const double back = std::max((above + below) / (2.0 * slopeUp), aside / slopeAside);
        const Point aim = centre + up * ((above - below) / 2.0);
        return {aim - forward * back, aim};
    }

    /// Over a slope, looking at the highest place around which all heights are known.
    Viewpoint closeUp() const {
        NBX::Bounds plan;
        const NBX::Bounds & interest = ground_.interest;
        if (interest.isDefined())
            plan = NBX::Bounds(interest.getLLF() - offset_, interest.getURB() - offset_);
        const auto highest = ZMT::UTIL::Summit::find(ground_.grid, plan);
        const Point summit = highest ? scaled(*highest + offset_) : middleOf(interest);
        double distance = size_ * 0.1;
        if (interest.isDefined())
            distance = std::min(distance, std::max(interest.diagonal().x, interest.diagonal().z));
        Point eye = summit + Point(-distance * 0.4, 0.0, -distance);
        eye.x = std::clamp(eye.x, box_.getLLF().x, box_.getURB().x);
        eye.y = summit.y + distance * 0.35;
        return {eye, summit - Point(0.0, distance * 0.1, 0.0)};
    }

    /// On the ground, where an area is so small that no summit is in it; without one, of the terrain.
    Point middleOf(const NBX::Bounds & area) const {
        if (!area.isDefined()) return box_.center();
        const Point middle = area.center();
        const Point geo = ZMT::CORE::GeoTransformation::nbx2geoTf(middle);
        const auto ground = groundAt(geo.x, geo.z);
        return ground ? Point(middle.x, *ground, middle.z) : box_.center();
    }

    const ViewedGround & ground_;
    double aspect_;
    Point offset_; ///< from coordinates of the grid to the scene
    NBX::Bounds box_;
    double size_;
};

/// As many numbers as `numbers` has, with commas between them and nothing else.
bool readNumbers(const char * text, double * numbers, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        char * end = nullptr;
        numbers[i] = std::strtod(text, &end);
        if (end == text || *end != (i + 1 < count ? ',' : '\0')) return false;
        if (!(std::abs(numbers[i]) <= s_largestCoordinate)) return false;
        text = end + 1;
    }
    return true;
}

/// Whether the field `index` of numbers between commas has a sign "+".
bool hasPlus(const std::string & text, unsigned index) {
    std::size_t at = 0;
    for (; index > 0; --index)
        at = text.find(',', at) + 1;
    return text[text.find_first_not_of(' ', at)] == '+';
}

View parseCoordinates(const std::string & text) {
    View view;
    std::array<double, 6> c{};
    if (!readNumbers(text.c_str(), c.data(), 6))
        throw UsageError(
            "--view must be overview, closeup, north, at:X,Y,AZIMUTH,PITCH,DISTANCE or six numbers "
            "EX,EY,EZ,AX,AY,AZ, each at most 1e12: " +
            text);
    view.isEyeAboveGround = hasPlus(text, 2);
    view.isAimAboveGround = hasPlus(text, 5);
    if (std::equal(c.begin(), c.begin() + 3, c.begin() + 3) && view.isEyeAboveGround == view.isAimAboveGround)
        throw UsageError("--view: eye and aim are the same point");
    view.coordinates = c;
    return view;
}

View parseDirection(const std::string & text) {
    View view;
    double n[5] = {};
    if (!readNumbers(text.c_str() + 3, n, 5) || std::abs(n[3]) > 90.0 || !(n[4] > 0.0))
        throw UsageError(
            "--view at: must be at:X,Y,AZIMUTH,PITCH,DISTANCE, with a pitch from -90 to 90 degrees "
            "and a distance above 0, each at most 1e12: " +
            text);
    view.coordinates = {0.0, 0.0, 0.0, n[0], n[1], 0.0};
    view.isAimAboveGround = true;
    view.direction = {n[2], n[3], n[4]};
    return view;
}

bool isStraightDown(const View & view) {
    if (!view.coordinates) return view.name == View::Name::North;
    if (view.direction) return view.direction->pitch > s_steepest;
    const auto & c = *view.coordinates;
    return c[0] == c[3] && c[1] == c[4];
}

} // namespace

View parseView(const std::string & text) {
    if (text == "overview") return View{.name = View::Name::Overview};
    if (text == "closeup") return View{.name = View::Name::CloseUp};
    if (text == "north") return View{.name = View::Name::North};
    return text.rfind("at:", 0) == 0 ? parseDirection(text) : parseCoordinates(text);
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

Viewpoint findViewpoint(const View & view, const ViewedGround & ground, double aspect) {
    return ViewpointFinder(ground, aspect).find(view);
}

void tellBuriedEye(const Viewpoint & viewpoint, const ViewedGround & ground) {
    const Point eye = ZMT::CORE::GeoTransformation::nbx2geoTf(viewpoint.eye);
    const auto surface = ViewpointFinder(ground).groundAt(eye.x, eye.z);
    if (!surface || !(viewpoint.eye.y < *surface)) return;
    writeError("warning: --view: the eye is " + text((*surface - viewpoint.eye.y) / ground.exaggeration) +
               " m under the ground; give its height as +METRES, which count from the ground");
}

void tellUnseenErrors(const View & view, const AllowedErrors & errors) {
    if (!errors.isGeometryAsked || errors.geometry == 0.0 || !isStraightDown(view)) return;
    writeError("warning: --geometry-error: heights may be wrong by so much upright, which does not show from "
               "straight above; only 0 gives more detail there");
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
