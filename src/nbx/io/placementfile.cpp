// The document is walked without recursion, since its elements may stand in each other as deep as a hostile
// file wants. Names are compared without the prefix of their namespace.

#include <nbx/io/modelplacement.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <unordered_map>

#include <pugixml.hpp>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

#include "folderfiles.h"
#include "plaintext.h"
#include "suffixof.h"
#include "unpackedarchive.h"

namespace NBX {

namespace {

constexpr std::uint64_t s_mostBytes = std::uint64_t{256} << 20;
/// Levels between a model and its placemark.
constexpr unsigned s_mostLevels = 32;
constexpr std::size_t s_mostLines = 1000;

const char * localName(const pugi::xml_node & node) {
    const char * colon = std::strchr(node.name(), ':');
    return colon ? colon + 1 : node.name();
}

pugi::xml_node childOf(const pugi::xml_node & node, const char * name) {
    for (const pugi::xml_node child : node.children())
        if (!std::strcmp(localName(child), name)) return child;
    return {};
}

std::string textOf(const pugi::xml_node & node) {
    const std::string text = node.text().get();
    const char * spaces = " \t\r\n";
    const std::size_t first = text.find_first_not_of(spaces);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

/// Nothing for an element that is there and holds no finite number.
std::optional<double> numberOf(const pugi::xml_node & node, const char * child, double missing) {
    const pugi::xml_node element = childOf(node, child);
    const std::string text = textOf(element);
    if (text.empty()) return missing;
    const char * begin = text.data() + (text[0] == '+');
    double number = 0.0;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        return std::nullopt;
    return number;
}

using PathsByName = std::map<std::string, std::string>;

PathsByName byName(const std::vector<std::string> & paths) {
    PathsByName all;
    for (const std::string & path : paths)
        if (const auto [other, isNew] = all.emplace(File::fileName(path), path); !isNew)
            throw InputException(L"has the file name of " + StringUtils::Utf8String2WString(other->second) +
                                     L", and placements tell models by it; rename one of them",
                                 path);
    return all;
}

/// Collects the models of a document.
class Walker : public pugi::xml_tree_walker {
public:
    /// Borrows both `given` and `result`.
    Walker(const std::string & folder, const PathsByName & given, ModelPlacements & result)
        : files_(folder), given_(given), result_(result) {}

    bool for_each(pugi::xml_node & node) override {
        if (node.type() != pugi::node_element) return true;
        const char * name = localName(node);
        const bool isModel = !std::strcmp(name, "Model");
        if (isModel && ++count_ > PlacementFile::maxModels) return false;
        if (isModel)
            take(node);
        else if (!std::strcmp(name, "NetworkLink"))
            leaveOut("network link " + nameAbove(childOf(node, "name")), "only files are read");
        return true;
    }

    /// Whether the walk has ended before the document, which has too many models.
    bool hasTooMany() const { return count_ > PlacementFile::maxModels; }
    /// For after the walk.
    void tellRest() {
        if (untold_ != 0)
            result_.leftOut.push_back(std::to_string(untold_) +
                                      " more models and network links are left out");
    }

private:
    static std::string nameAbove(const pugi::xml_node & node) {
        const std::string text = textOf(node);
        return text.empty() ? "without a name" : text;
    }

    /// The name of the placemark around a model, or the model's own identifier.
    std::string nameOf(const pugi::xml_node & model) {
        pugi::xml_node node = model.parent();
        for (unsigned level = 0; node && level < s_mostLevels; ++level, node = node.parent()) {
            if (std::strcmp(localName(node), "Placemark") != 0) continue;
            const auto [known, isNew] = names_.try_emplace(node.internal_object());
            if (isNew) known->second = textOf(childOf(node, "name"));
            return known->second;
        }
        return model.attribute("id").value();
    }

    void leaveOut(const std::string & what, const std::string & reason) {
        if (++lines_ > s_mostLines)
            ++untold_;
        else
            result_.leftOut.push_back(plainText(what + " is left out: " + reason));
    }

    FolderFiles::Found find(const std::string & reference) const {
        // A name may hold what looks like an escape.
        for (const std::string & text : {reference, FolderFiles::unescaped(reference)}) {
            const auto given = given_.find(FolderFiles::lastName(text));
            if (given != given_.end()) return {given->second, ""};
        }
        return files_.find(reference);
    }

    void take(const pugi::xml_node & node) {
        ModelPlacement placement;
        placement.name = plainText(nameOf(node));
        const std::string shown = "model " + (placement.name.empty() ? "without a name" : placement.name);
        const std::string reference = textOf(childOf(childOf(node, "Link"), "href"));
        if (reference.empty()) return leaveOut(shown, "it names no file");
        const FolderFiles::Found found = find(reference);
        if (found.path.empty())
            return leaveOut(shown, (found.refusal.empty() ? "there is no file " + reference
                                                          : found.refusal + ", " + reference));
        placement.model = found.path;
        if (!takePlace(node, placement))
            return leaveOut(shown, "its place is no number, or not on the earth");
        if (!takeAltitudeMode(node, placement))
            return leaveOut(shown, "its altitude counts from the ground of the sea");
        result_.models.push_back(placement);
    }

    static bool takePlace(const pugi::xml_node & node, ModelPlacement & placement) {
        const pugi::xml_node location = childOf(node, "Location"), orientation = childOf(node, "Orientation"),
                             scale = childOf(node, "Scale");
        bool isSound =
            !textOf(childOf(location, "longitude")).empty() && !textOf(childOf(location, "latitude")).empty();
        const auto take = [&isSound](double & value, const pugi::xml_node & in, const char * name) {
            const auto number = numberOf(in, name, value);
            if (number) value = *number;
            isSound = isSound && number;
        };
        take(placement.longitude, location, "longitude");
        take(placement.latitude, location, "latitude");
        take(placement.altitude, location, "altitude");
        take(placement.heading, orientation, "heading");
        take(placement.tilt, orientation, "tilt");
        take(placement.roll, orientation, "roll");
        take(placement.scale.x, scale, "x");
        take(placement.scale.y, scale, "y");
        take(placement.scale.z, scale, "z");
        const auto & s = placement.scale;
        return isSound && std::abs(placement.latitude) <= 90.0 && std::abs(placement.longitude) <= 360.0 &&
               s.x != 0.0 && s.y != 0.0 && s.z != 0.0;
    }

    static bool takeAltitudeMode(const pugi::xml_node & node, ModelPlacement & placement) {
        const std::string mode = textOf(childOf(node, "altitudeMode"));
        placement.altitudeMode = mode == "absolute"           ? ModelPlacement::AM_Absolute
                                 : mode == "relativeToGround" ? ModelPlacement::AM_RelativeToGround
                                                              : ModelPlacement::AM_ClampToGround;
        return mode != "clampToSeaFloor" && mode != "relativeToSeaFloor";
    }

    FolderFiles files_;
    const PathsByName & given_;
    ModelPlacements & result_;
    /// By placemark: of the many models that one may hold, only the first looks for the name.
    std::unordered_map<const pugi::xml_node_struct *, std::string> names_;
    std::size_t count_ = 0, lines_ = 0, untold_ = 0;
};

void readDocument(const std::string & path, const std::string & shownPath, const PathsByName & given,
                  ModelPlacements & result) {
    std::vector<std::uint8_t> bytes = File::contents(path, s_mostBytes);
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer_inplace(bytes.data(), bytes.size());
    if (!parsed)
        throw InputException(L"is no sound XML: " + StringUtils::Utf8String2WString(parsed.description()) +
                                 L" at byte " + std::to_wstring(parsed.offset) + L"; get it anew",
                             shownPath);
    if (std::strcmp(localName(document.document_element()), "kml") != 0)
        throw InputException(L"is no KML; choose a KML or KMZ file", shownPath);
    const std::string whole = File::absolutePath(path);
    Walker walker(File::pathName(whole), given, result);
    document.traverse(walker);
    if (walker.hasTooMany())
        throw InputException(L"holds more than " + std::to_wstring(PlacementFile::maxModels) +
                                 L" models; divide it into several files",
                             shownPath);
    walker.tellRest();
}

/// The KML that stands for the archive: one at its top, before those in folders.
std::string mainDocument(const UnpackedArchive & archive, const std::string & path) {
    const std::string * chosen = nullptr;
    for (const std::string & name : archive.names()) {
        if (suffixOf(name) != "kml") continue;
        const bool isAtTop = name.find('/') == std::string::npos;
        if (isAtTop && name == "doc.kml") return archive.folder() + name;
        if (!chosen || (isAtTop && chosen->find('/') != std::string::npos)) chosen = &name;
    }
    if (!chosen) throw InputException(L"holds no KML; choose another archive", path);
    return archive.folder() + *chosen;
}

} // namespace

bool PlacementFile::recognizes(const std::string & path) {
    const std::string suffix = suffixOf(path);
    return suffix == "kml" || suffix == "kmz";
}

ModelPlacements PlacementFile::read(const std::string & path, const std::vector<std::string> & models) {
    const PathsByName given = byName(models);
    if (!File::exists(path)) throw FileNotFoundException(L"file not found", path);
    if (!File::isFile(path)) throw InputException(L"is no regular file", path);
    ModelPlacements result;
    if (suffixOf(path) != "kmz") {
        readDocument(path, path, given, result);
        return result;
    }
    const SO<UnpackedArchive> archive(new UnpackedArchive(path));
    result.files = archive;
    result.folder = archive->folder();
    result.leftOut = archive->leftOut();
    readDocument(mainDocument(*archive, path), path, given, result);
    return result;
}

} // namespace NBX
