// One stored object holds a scene field by field. Lists are attributes of one name that come one behind the
// other, so a list ends where no more of them follow; what was not told is not there.

#include "scene.h"

#include <cmath>
#include <type_traits>
#include <utility>

#include "landscape/errors.h"
#include "landscape/streamedfiles.h"
#include "scenelinks.h"

#include <nbx/data/file.h>
#include <nbx/data/locator.h>
#include <nbx/data/objectloader.h>
#include <nbx/data/objectsaver.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

const std::string s_sceneSuffix = "zmt";

namespace {

using NBX::StringUtils;
using ZMT::RASTER::ImageColors;

/// 2: order and opacity of all layers. In a scene of version 1 they are as they are read.
constexpr unsigned s_sceneVersion = 2;
constexpr unsigned s_mostPictureBytes = 1U << 20U;
constexpr double s_farthestPlace = 1e9; ///< of an eye or an aim, in map coordinates
constexpr double s_farthestTime = 1e11; ///< of a sun, in seconds from 1970
constexpr int s_farthestZone = 24 * 60; ///< in minutes

/// Reads or writes fields by name.
class SceneFields {
public:
    explicit SceneFields(NBX::SerializationManager & m) : m_(m) {}

    /// False where reading finds none.
    template <class T> bool one(const char * name, T & value) {
        if constexpr (std::is_enum_v<T>) {
            int number = int(value);
            const bool isThere = one(name, number);
            if (m_.isReading() && isThere) value = T(number);
            return isThere;
        } else if constexpr (std::is_same_v<T, std::string>) {
            std::wstring text = m_.isReading() ? std::wstring() : StringUtils::Utf8String2WString(value);
            const bool isThere = m_.attribute(name, text);
            if (m_.isReading() && isThere) value = StringUtils::WString2Utf8String(text);
            return isThere;
        } else if constexpr (std::is_same_v<T, ImageColors>) {
            std::string text = m_.isReading() ? std::string() : value.text();
            const bool isThere = one(name, text);
            if (m_.isReading() && isThere) value = ImageColors::parse(text).value_or(ImageColors());
            return isThere;
        } else {
            return m_.attribute(name, value);
        }
    }
    template <class T> void maybe(const char * name, std::optional<T> & value) {
        if (m_.isReading()) {
            T read{};
            value = one(name, read) ? std::optional(read) : std::nullopt;
        } else if (value) {
            one(name, *value);
        }
    }
    /// `each` reads or writes an entry, and says whether there was one.
    template <class T, class F> void list(std::vector<T> & values, const F & each) {
        if (m_.isReading()) {
            values.clear();
            for (T value{}; each(value); value = T{})
                values.push_back(value);
        } else {
            for (T & value : values)
                each(value);
        }
    }
    template <class T> void list(const char * name, std::vector<T> & values) {
        list(values, [&](T & value) { return one(name, value); });
    }

private:
    NBX::SerializationManager & m_;
};

void sceneFiles(SceneFields & f, LandscapeOptions & o) {
    f.one("terrain", o.terrain);
    f.list("images", o.images);
    f.list("breakLines", o.breakLines);
    f.list("draped", o.draped);
    f.list("vectors", o.vectors);
    f.list("cities", o.cities.files);
    f.list(o.overlays, [&](OverlayOptions & overlay) {
        return f.one("overlay", overlay.file) && f.one("overlayLayer", overlay.layer) &&
               f.one("overlayStyle", overlay.style);
    });
    f.list("tracks", o.tracks.files);
    f.one("tracksTime", o.tracks.time);
}

void sceneSunlight(SceneFields & f, std::optional<Sunlight> & light) {
    std::optional<NBX::Vector3Base<double>> direction;
    double ambient = light ? light->ambient : 0.0;
    if (light) direction = light->direction;
    f.maybe("sun", direction);
    if (direction) f.one("ambient", ambient);
    light = direction ? std::optional(Sunlight{*direction, ambient}) : std::nullopt;
}

void sceneOptions(SceneFields & f, LandscapeOptions & o) {
    f.one("fillVoids", o.fillVoids);
    f.one("crs", o.crs);
    f.list("bands", o.look.bands);
    f.list("stretches", o.look.stretches);
    f.list("gammas", o.look.gammas);
    f.list("opacities", o.look.opacities);
    f.one("cache", o.look.cache);
    f.one("drapeLift", o.drapeLift);
    sceneSunlight(f, o.light);
    f.maybe("lighting", o.lighting);
    f.maybe("shadeImages", o.shadeImages);
    f.one("method", o.method);
    f.maybe("maxVertices", o.tree.maxVertices);
    f.one("cityQuality", o.cities.look.quality);
    f.maybe("cityDistance", o.cities.look.distance);
    f.maybe("contours", o.contours);
    f.one("exaggeration", o.exaggeration);
    f.one("plain", o.plain);
    std::optional<double> height;
    if (o.flood) height = o.flood->height;
    f.maybe("floodHeight", height);
    if (height && !o.flood) o.flood = FloodOptions{*height};
    if (!o.flood) return;
    for (unsigned i = 0; i < 4; ++i)
        f.one("floodColor", o.flood->color[i]);
}

void sceneSun(SceneFields & f, std::optional<SunMoment> & sun) {
    std::optional<double> time;
    if (sun) time = sun->time;
    f.maybe("sunTime", time);
    if (!time) return sun.reset();
    SunMoment moment = sun.value_or(SunMoment());
    moment.time = *time;
    f.one("sunZone", moment.zone);
    f.one("sunLongitude", moment.longitude);
    f.one("sunLatitude", moment.latitude);
    sun = moment;
}

void sceneLook(SceneFields & f, LandscapeLook & look) {
    f.list(look.layers, [&](LandscapeLook::Layer & layer) {
        return f.one("groundName", layer.name) && f.one("groundNumber", layer.number) &&
               f.one("groundShown", layer.isOn) && f.one("groundOpacity", layer.opacity);
    });
    f.list(look.tracks, [&](Tracks::Look & track) {
        return f.one("trackShown", track.isShown) && f.one("trackOpacity", track.opacity);
    });
    f.list(look.overlays, [&](Overlays::Look & overlay) {
        bool isRestyled = overlay.style.has_value();
        std::string style = overlay.style.value_or("");
        const bool isThere = f.one("lookName", overlay.name) && f.one("lookShown", overlay.isShown) &&
                             f.one("lookOpacity", overlay.opacity) && f.one("lookRestyled", isRestyled) &&
                             f.one("lookStyle", style);
        overlay.style = isRestyled ? std::optional(style) : std::nullopt;
        return isThere;
    });
    f.list(look.cities, [&](LandscapeLook::City & city) {
        double distance = city.look.distance.value_or(HUGE_VAL);
        const bool isThere = f.one("citiesShown", city.isShown) &&
                             f.one("citiesQuality", city.look.quality) && f.one("citiesDistance", distance);
        city.look.distance = std::isfinite(distance) ? std::optional(distance) : std::nullopt;
        return isThere;
    });
    f.one("lookExaggeration", look.exaggeration);
    f.one("isFlooded", look.isFlooded);
    f.one("lookFloodHeight", look.floodHeight);
    f.one("lookFloodOpacity", look.floodOpacity);
    f.list(look.tints, [&](HeightTints::value_type & tint) {
        return f.one("tintHeight", tint.height) && f.one("tintRed", tint.color[0]) &&
               f.one("tintGreen", tint.color[1]) && f.one("tintBlue", tint.color[2]);
    });
    f.one("mapGrid", look.grid);
    sceneSun(f, look.sun);
}

bool isMoment(const SunMoment & moment) {
    return std::abs(moment.time) <= s_farthestTime && std::abs(moment.zone) <= s_farthestZone &&
           std::abs(moment.longitude) <= 180.0 && std::abs(moment.latitude) <= 90.0;
}

/// In its place among the others.
bool isTint(const HeightTints & tints, std::size_t number) {
    bool isGood = std::isfinite(tints[number].height) &&
                  (number == 0 || tints[number - 1].height <= tints[number].height);
    for (unsigned i = 0; i < 3; ++i)
        isGood &= tints[number].color[i] >= 0.0F && tints[number].color[i] <= 1.0F;
    return isGood;
}

bool isPlace(double number) {
    return std::abs(number) <= s_farthestPlace;
}

/// Numbers of a file mean nothing before this; `checkLandscape` looks at others.
bool isSound(const Scene & scene) {
    const LandscapeOptions & o = scene.landscape;
    const auto isShare = [](double number) { return number >= 0.0 && number <= 1.0; };
    const auto isError = [](double pixels) { return pixels >= 0.0 && pixels <= 1e6; };
    const auto isFactor = [](double factor) { return factor > 0.0 && factor <= 1e6; };
    bool isGood = isError(scene.errors.geometry) && isError(scene.errors.texture) && int(o.method) >= 0 &&
                  o.method <= TerrainMethod::Chunked && std::isfinite(scene.trackTime.value_or(0.0)) &&
                  std::isfinite(scene.look.floodHeight) && isFactor(scene.look.exaggeration);
    for (const double number : scene.view)
        isGood &= isPlace(number);
    for (const double opacity : o.look.opacities)
        isGood &= isShare(opacity);
    for (const Overlays::Look & overlay : scene.look.overlays)
        isGood &= isShare(overlay.opacity);
    for (const LandscapeLook::Layer & layer : scene.look.layers)
        isGood &= isShare(layer.opacity);
    for (const Tracks::Look & track : scene.look.tracks)
        isGood &= isShare(track.opacity);
    isGood &= isShare(scene.look.floodOpacity);
    for (const LandscapeLook::City & city : scene.look.cities)
        isGood &= city.look.quality > 0.0 && city.look.distance.value_or(1.0) > 0.0;
    for (const Bookmark & bookmark : scene.bookmarks)
        for (const auto & place : {bookmark.position->getFrom(), bookmark.position->getTo()})
            isGood &= isPlace(place.x) && isPlace(place.y) && isPlace(place.z);
    for (std::size_t i = 0; i < scene.look.tints.size(); ++i)
        isGood &= isTint(scene.look.tints, i);
    isGood &= int(scene.look.grid) >= 0 && scene.look.grid <= MapGrid::Kind::Degrees;
    if (scene.look.sun) isGood &= isMoment(*scene.look.sun);
    if (o.lighting) isGood &= int(*o.lighting) >= 0 && *o.lighting <= Lighting::Dynamic;
    if (o.light) isGood &= std::abs(o.light->direction.length() - 1.0) < 1e-6 && isShare(o.light->ambient);
    return isGood;
}

} // namespace

/// A scene in a file.
class StoredScene : public NBX::SharedObj {
    NBX_STORED_TEMPLATE_CLASS(StoredScene, NBX::SharedObj)
public:
    StoredScene() = default;
    StoredScene(Scene scene, std::string folder) : scene_(std::move(scene)), folder_(std::move(folder)) {}

    unsigned version() const { return version_; }
    const Scene & scene() const { return scene_; }
    /// In which it was stored.
    const std::string & folder() const { return folder_; }

    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<NBX::SharedObj>(m, this);
        SceneFields fields(m);
        fields.one("version", version_);
        fields.one("folder", folder_);
        sceneFiles(fields, scene_.landscape);
        sceneOptions(fields, scene_.landscape);
        sceneLook(fields, scene_.look);
        if (m.isReading() && version_ < 2)
            scene_.look.floodOpacity = scene_.landscape.flood.value_or(FloodOptions()).color[3];
        for (double & number : scene_.view)
            fields.one("view", number);
        fields.one("geometryError", scene_.errors.geometry);
        fields.one("textureError", scene_.errors.texture);
        fields.one("wireframe", scene_.wireframe);
        fields.one("patches", scene_.patches);
        fields.maybe("trackTime", scene_.trackTime);
        fields.list(scene_.bookmarks, [&](Bookmark & bookmark) { return serialize(m, bookmark); });
    }

private:
    static bool serialize(NBX::SerializationManager & m, Bookmark & bookmark) {
        if (!m.attribute("bookmark", bookmark.position) || !bookmark.position) return false;
        auto bytes = unsigned(bookmark.picture.size());
        if (!m.attribute("pictureBytes", bytes) ||
            bytes > std::min<std::uint64_t>(m.bytesLeft(), s_mostPictureBytes))
            return false;
        bookmark.picture.resize(bytes);
        return m.rawAttribute("picture", bookmark.picture.data(), bytes);
    }

    unsigned version_ = s_sceneVersion;
    Scene scene_;
    std::string folder_;
};

bool isSceneFile(const std::string & path) {
    if (isUrl(path)) return false;
    const NBX::Locator locator(path);
    return locator.suffix() == s_sceneSuffix ||
           NBX::ObjectLoader::classOf(locator.text()) == StoredScene::ClassNameNBX();
}

void writeScene(const Scene & scene, const std::string & path) {
    Scene stored = scene;
    settleLinks(stored.landscape);
    const std::string folder = NBX::File::pathName(NBX::File::absolutePath(path));
    NBX::ObjectSaver::write(NBX::SO<StoredScene>(new StoredScene(stored, folder)).get(), path);
}

ReadScene readScene(const std::string & path) {
    const std::string file = NBX::Locator(path).text();
    NBX::File::checkReadable(file);
    const auto stored =
        NBX::soCast<StoredScene>(NBX::ObjectLoader::readFile(file, StoredScene::ClassNameNBX(), false));
    if (!stored) throw DataError(path + ": is no scene, or damaged");
    if (stored->version() > s_sceneVersion)
        throw DataError(path + ": was saved by a later version of zmt, which this one does not know");
    ReadScene read{stored->scene(), {}};
    if (!isSound(read.scene)) throw DataError(path + ": is damaged: it has numbers that no scene has");
    const std::string folder = NBX::File::pathName(NBX::File::absolutePath(file));
    read.missing = findLinks(read.scene.landscape, stored->folder(), folder);
    if (mainFile(read.scene.landscape).empty()) throw DataError(path + ": none of its files is there");
    try {
        checkLandscape(read.scene.landscape);
    } catch (const UsageError & error) {
        throw DataError(path + ": cannot be shown: " + error.what());
    }
    return read;
}
