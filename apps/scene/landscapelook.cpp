#include "landscapelook.h"

#include <algorithm>
#include <utility>

LandscapeLook LandscapeLook::of(const Landscape & landscape) {
    LandscapeLook look;
    look.layers.reserve(landscape.layers().size());
    for (const GroundLayer & layer : landscape.layers())
        look.layers.push_back({layer.name, layer.number, layer.isOn, layer.opacity});
    look.overlays = landscape.overlays().looks();
    look.cities.reserve(landscape.cities().size());
    for (const CityLayer & city : landscape.cities())
        look.cities.push_back({city.isShown(), city.look()});
    look.tracks = landscape.tracks().looks();
    look.exaggeration = landscape.exaggeration();
    look.isFlooded = landscape.flood().isOn();
    look.floodHeight = landscape.flood().height();
    look.floodOpacity = landscape.flood().opacity();
    look.tints = landscape.tints();
    look.grid = MapGrid::of(landscape);
    look.sun = landscape.sun();
    return look;
}

void LandscapeLook::applyLayersTo(Landscape & landscape) const {
    const auto & there = std::as_const(landscape).layers();
    std::vector<std::size_t> order;
    std::vector<bool> isKnown(there.size());
    order.reserve(there.size());
    for (const Layer & look : layers)
        for (std::size_t i = 0; i < there.size(); ++i) {
            if (isKnown[i] || there[i].name != look.name || there[i].number != look.number) continue;
            isKnown[i] = true;
            order.push_back(i);
            landscape.setLayerOn(i, look.isOn);
            landscape.setLayerOpacity(i, look.opacity);
            break;
        }
    for (std::size_t i = 0; i < there.size(); ++i)
        if (!isKnown[i]) order.push_back(i);
    landscape.setLayerOrder(order);
    landscape.overlays().setLooks(overlays);
}

void LandscapeLook::applyTo(Landscape & landscape) const {
    MapGrid::show(landscape, grid);
    applyLayersTo(landscape);
    landscape.tracks().setLooks(tracks);
    for (std::size_t i = 0; i < std::min(cities.size(), landscape.cities().size()); ++i) {
        CityLayer & city = landscape.cities()[i];
        city.setShown(cities[i].isShown);
        city.setLook(cities[i].look);
    }
    if (landscape.hasTerrain() && landscape.exaggeration() != exaggeration)
        landscape.setExaggeration(exaggeration);
    landscape.flood().setOn(isFlooded);
    landscape.flood().setHeight(floodHeight);
    landscape.flood().setOpacity(floodOpacity);
    landscape.setTints(tints);
    landscape.setSun(sun);
}

bool LandscapeLook::hasSameSwitches(const LandscapeLook & other) const {
    LandscapeLook same = other;
    same.exaggeration = exaggeration;
    same.floodHeight = floodHeight;
    same.floodOpacity = floodOpacity;
    if (sun && same.sun) same.sun = sun;
    for (std::size_t i = 0; i < std::min(layers.size(), same.layers.size()); ++i)
        same.layers[i].opacity = layers[i].opacity;
    for (std::size_t i = 0; i < std::min(tracks.size(), same.tracks.size()); ++i)
        same.tracks[i].opacity = tracks[i].opacity;
    for (std::size_t i = 0; i < std::min(overlays.size(), same.overlays.size()); ++i)
        same.overlays[i].opacity = overlays[i].opacity;
    for (std::size_t i = 0; i < std::min(cities.size(), same.cities.size()); ++i)
        same.cities[i].look = cities[i].look;
    return *this == same;
}
