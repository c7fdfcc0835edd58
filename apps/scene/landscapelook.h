#pragma once

#include <optional>
#include <string>
#include <vector>

#include "heighttints.h"
#include "landscape/landscape.h"
#include "mapgrid.h"

/// What a user changes of the layers of a landscape while it is shown: enough to come back to it.
struct LandscapeLook {
    struct City {
        bool isShown = true;
        CityLook look = {};
        bool operator==(const City & other) const {
            return isShown == other.isShown && look.quality == other.look.quality &&
                   look.distance == other.look.distance;
        }
    };

    /// One that lies on the ground.
    struct Layer {
        std::string name;
        unsigned number = 0; ///< of those with this name, as `GroundLayer::number`
        bool isOn = true;
        double opacity = 1.0;
        bool operator==(const Layer &) const = default;
    };

    std::vector<Layer> layers;            ///< lowest first
    std::vector<Overlays::Look> overlays; ///< lowest first
    std::vector<City> cities;
    std::vector<Tracks::Look> tracks;
    double exaggeration = 1.0;
    bool isFlooded = false;
    double floodHeight = 0.0, floodOpacity = 1.0;
    HeightTints tints; ///< empty for the usual ones
    MapGrid::Kind grid = MapGrid::Kind::None;
    std::optional<SunMoment> sun; ///< none for the light that the landscape was read with

    bool operator==(const LandscapeLook &) const = default;

    static LandscapeLook of(const Landscape & landscape);
    /// Gives it to a landscape. What that one has not is left out, and what only that one has is on top.
    /// Throws as `Landscape::setSun`.
    void applyTo(Landscape & landscape) const;

    /// The same without what is known by its place alone: for a landscape of other files, in which cities and
    /// tracks, the flood and the exaggeration stay as they are.
    void applyLayersTo(Landscape & landscape) const;

    /// Whether `other` differs in numbers alone, as while a slider is moved.
    bool hasSameSwitches(const LandscapeLook & other) const;
};
