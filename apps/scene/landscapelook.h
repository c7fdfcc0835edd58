#pragma once

#include <optional>
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

    std::vector<bool> layers;             ///< which of those on the ground are on, lowest first
    std::vector<Overlays::Look> overlays; ///< lowest first
    std::vector<City> cities;
    double exaggeration = 1.0;
    bool isFlooded = false;
    double floodHeight = 0.0;
    HeightTints tints; ///< empty for the usual ones
    MapGrid::Kind grid = MapGrid::Kind::None;
    std::optional<SunMoment> sun; ///< none for the light that the landscape was read with

    bool operator==(const LandscapeLook &) const = default;

    /// That of a landscape. Whether a layer is on is known to the one who switches it.
    static LandscapeLook of(const Landscape & landscape, const std::vector<bool> & layers);
    /// Gives a landscape all of it but `layers`. What that one has not is left out. Throws as
    /// `Landscape::setSun`.
    void applyTo(Landscape & landscape) const;

    /// Whether `other` differs in numbers alone, as while a slider is moved.
    bool hasSameSwitches(const LandscapeLook & other) const;
};
