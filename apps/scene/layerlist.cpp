// Entries are made anew whenever something has changed; they name what they stand for by kind and number.
// What is wrong is found in the records of failed reads by the names of files, and in what reading has noted.

#include "layerlist.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "landscape/streamedfiles.h"

#include <nbx/object/stringutils.h>
#include <zmt/raster/gdal/vector/featurefile.h>

namespace {

using Kind = LayerEntry::Kind;
using NBX::StringUtils;

const Overlays::Overlay & overlayOf(const Landscape & landscape, std::size_t number) {
    return *landscape.overlays().list().at(number);
}

LayerEntry entryOf(const GroundLayer & layer, std::size_t number) {
    LayerEntry entry{Kind::Ground, number, layer.name, shownName(layer.source), layer.isOn};
    if (layer.isImage()) entry.opacity = layer.opacity;
    entry.isMovable = layer.isImage() || layer.kind == LayerKind::Shading;
    return entry;
}

/// The lowest first.
std::vector<LayerEntry> groundEntries(const Landscape & landscape) {
    std::vector<LayerEntry> entries;
    if (!landscape.hasTerrain()) return entries;
    entries.push_back({Kind::Terrain, 0, fileNameOf(landscape.file()), shownName(landscape.file())});
    for (std::size_t i = 0; i < landscape.layers().size(); ++i)
        entries.push_back(entryOf(landscape.layers()[i], i));
    for (std::size_t i = 0; i < landscape.overlays().list().size(); ++i) {
        const Overlays::Overlay & overlay = overlayOf(landscape, i);
        entries.push_back({Kind::Overlay, i, overlay.name(), "", overlay.isShown(), overlay.opacity(), true});
    }
    const Flood & flood = landscape.flood();
    entries.push_back({Kind::Flood, 0, "", "", flood.isOn(), flood.opacity()});
    for (std::size_t i = 0; i < landscape.tracks().list().size(); ++i) {
        const std::string & file = landscape.tracks().file(i);
        const Tracks::Look & look = landscape.tracks().looks()[i];
        entries.push_back({Kind::Track, i, fileNameOf(file), shownName(file), look.isShown, look.opacity});
    }
    return entries;
}

/// Changes how one track looks.
template <class F> void changeTrack(Landscape & landscape, std::size_t number, const F & change) {
    auto looks = std::as_const(landscape).tracks().looks();
    change(looks.at(number));
    landscape.tracks().setLooks(looks);
}

/// Numbers of those of one kind, the lowest first.
std::vector<std::size_t> orderOf(const std::vector<LayerEntry> & entries, Kind kind) {
    std::vector<std::size_t> order;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        if (entry->kind == kind) order.push_back(entry->number);
    return order;
}

std::string streamNameOf(const NBX::SO<ZMT::CORE::AsyncFile> & file) {
    return file ? shownName(StringUtils::WString2Utf8String(file->url())) : "";
}

/// What is read of an entry while it is looked at, as failures call it.
std::vector<std::string> streamedNames(const Landscape & landscape, const LayerEntry & entry) {
    std::vector<std::string> names;
    if (entry.kind == Kind::Ground) names.push_back(streamNameOf(landscape.layers().at(entry.number).file));
    if (entry.kind == Kind::Terrain && landscape.isStreamed())
        names.push_back(streamNameOf(landscape.streamedFiles().front()));
    if (entry.kind == Kind::City)
        for (const NamedFile & file : landscape.cities().at(entry.number).pagingFiles())
            names.push_back(shownName(file.path));
    return names;
}

bool hasChanged(const Landscape & landscape, const LayerEntry & entry) {
    if (entry.kind == Kind::City) return landscape.cities().at(entry.number).hasChanged();
    if (entry.kind == Kind::Terrain)
        return landscape.isStreamed() && landscape.streamedFiles().front()->hasChanged();
    if (entry.kind != Kind::Ground) return false;
    const auto & file = landscape.layers().at(entry.number).file;
    return file && file->hasChanged();
}

/// What reading has noted of it.
std::string notesOf(const Landscape & landscape, const LayerEntry & entry) {
    if (entry.kind == Kind::Track) return landscape.tracks().losses(entry.number);
    if (entry.kind == Kind::City && landscape.hasTerrain())
        return outsideReport(landscape.cities().at(entry.number), landscape.grid());
    if (entry.kind != Kind::Overlay) return {};
    const Overlays::Overlay & overlay = overlayOf(landscape, entry.number);
    const auto * file = dynamic_cast<const ZMT::RASTER::FeatureFile *>(overlay.source().get());
    const std::string losses = file ? file->lossReport() : "";
    return overlay.failure() + (overlay.failure().empty() || losses.empty() ? "" : "\n") + losses;
}

} // namespace

std::vector<LayerEntry> LayerList::of(const Landscape & landscape) {
    std::vector<LayerEntry> entries = groundEntries(landscape);
    const auto & cities = landscape.cities();
    for (std::size_t i = 0; i < cities.size(); ++i)
        entries.push_back(
            {Kind::City, i, fileNameOf(cities[i].name()), cities[i].name(), cities[i].isShown()});
    std::reverse(entries.begin(), entries.end());
    return entries;
}

void LayerList::setOn(Landscape & landscape, const LayerEntry & entry, bool isOn) {
    switch (entry.kind) {
    case Kind::City:
        return landscape.cities().at(entry.number).setShown(isOn);
    case Kind::Track:
        return changeTrack(landscape, entry.number, [&](Tracks::Look & look) { look.isShown = isOn; });
    case Kind::Flood:
        return landscape.flood().setOn(isOn);
    case Kind::Overlay:
        return landscape.overlays().list().at(entry.number)->setShown(isOn);
    case Kind::Ground:
        return landscape.setLayerOn(entry.number, isOn);
    case Kind::Terrain:
        return;
    }
}

void LayerList::setOpacity(Landscape & landscape, const LayerEntry & entry, double opacity) {
    switch (entry.kind) {
    case Kind::Track:
        return changeTrack(landscape, entry.number, [&](Tracks::Look & look) { look.opacity = opacity; });
    case Kind::Flood:
        return landscape.flood().setOpacity(opacity);
    case Kind::Overlay:
        return landscape.overlays().list().at(entry.number)->setOpacity(opacity);
    case Kind::Ground:
        return landscape.setLayerOpacity(entry.number, opacity);
    case Kind::City:
    case Kind::Terrain:
        return;
    }
}

bool LayerList::setOrder(Landscape & landscape, const std::vector<LayerEntry> & entries) {
    const auto before = of(landscape);
    const auto isNew = [&](Kind kind) { return orderOf(entries, kind) != orderOf(before, kind); };
    const bool movesOverlays = isNew(Kind::Overlay), movesLayers = isNew(Kind::Ground);
    if (movesOverlays) landscape.overlays().setOrder(orderOf(entries, Kind::Overlay));
    if (!movesLayers) return movesOverlays;
    const auto names = [&] {
        std::vector<const NBX::Attribute *> effects;
        effects.reserve(landscape.layers().size());
        for (const GroundLayer & layer : std::as_const(landscape).layers())
            effects.push_back(layer.effect.get());
        return effects;
    };
    const auto lay = names();
    landscape.setLayerOrder(orderOf(entries, Kind::Ground));
    return movesOverlays || names() != lay;
}

std::string LayerList::problemOf(const Landscape & landscape, const LayerEntry & entry,
                                 const std::vector<ReadFailure> & failures) {
    const auto names = streamedNames(landscape, entry);
    std::vector<ReadFailure> own;
    std::copy_if(failures.begin(), failures.end(), std::back_inserter(own), [&](const ReadFailure & failure) {
        return std::find(names.begin(), names.end(), failure.file) != names.end();
    });
    std::string lines;
    const auto add = [&](const std::string & line) {
        if (!line.empty()) lines.append(lines.empty() ? "" : "\n").append(line);
    };
    add(summaryOf(own));
    if (hasChanged(landscape, entry)) add("the file has changed; a reload shows it as it is now");
    add(notesOf(landscape, entry));
    return lines;
}
