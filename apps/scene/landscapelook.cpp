#include "landscapelook.h"

#include <algorithm>

LandscapeLook LandscapeLook::of(const Landscape & landscape, const std::vector<bool> & layers) {
    LandscapeLook look;
    look.layers = layers;
    look.overlays = landscape.overlays().looks();
    look.cities.reserve(landscape.cities().size());
    for (const CityLayer & city : landscape.cities())
        look.cities.push_back({city.isShown(), city.look()});
    look.exaggeration = landscape.exaggeration();
    look.isFlooded = landscape.flood().isOn();
    look.floodHeight = landscape.flood().height();
    look.tints = landscape.tints();
    look.grid = MapGrid::of(landscape);
    look.sun = landscape.sun();
    return look;
}

void LandscapeLook::applyTo(Landscape & landscape) const {
    MapGrid::show(landscape, grid);
    landscape.overlays().setLooks(overlays);
    for (std::size_t i = 0; i < std::min(cities.size(), landscape.cities().size()); ++i) {
        CityLayer & city = landscape.cities()[i];
        city.setShown(cities[i].isShown);
        city.setLook(cities[i].look);
    }
    if (landscape.hasTerrain() && landscape.exaggeration() != exaggeration)
        landscape.setExaggeration(exaggeration);
    landscape.flood().setOn(isFlooded);
    landscape.flood().setHeight(floodHeight);
    landscape.setTints(tints);
    landscape.setSun(sun);
}

bool LandscapeLook::hasSameSwitches(const LandscapeLook & other) const {
    LandscapeLook same = other;
    same.exaggeration = exaggeration;
    same.floodHeight = floodHeight;
    if (sun && same.sun) same.sun = sun;
    for (std::size_t i = 0; i < std::min(overlays.size(), same.overlays.size()); ++i)
        same.overlays[i].opacity = overlays[i].opacity;
    for (std::size_t i = 0; i < std::min(cities.size(), same.cities.size()); ++i)
        same.cities[i].look = cities[i].look;
    return *this == same;
}
