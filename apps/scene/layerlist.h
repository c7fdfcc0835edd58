#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "landscape/landscape.h"
#include "landscape/readfailures.h"

/// One of all the things that make a landscape, as a list of them tells it.
struct LayerEntry {
    /// In the order of a list from its top.
    enum class Kind {
        City,
        Track,
        Flood,
        Overlay,
        Ground, ///< a `GroundLayer`
        Terrain,
    };

    Kind kind;
    std::size_t number = 0; ///< among those of its kind, as the landscape has them
    std::string name;       ///< for people; empty for the flood
    std::string source;     ///< path or URL, as it is shown; empty for what is made of the heights
    bool isOn = true;
    std::optional<double> opacity = {}; ///< none for what is opaque by its nature
    bool isMovable = false;             ///< among others of its kind

    bool isSame(const LayerEntry & other) const { return kind == other.kind && number == other.number; }
};

/// What stands and lies on a landscape, the terrain itself included, as one list from the top. On the thread
/// that draws.
class LayerList {
public:
    static std::vector<LayerEntry> of(const Landscape & landscape);

    // Of an entry that the landscape has; nothing for what the entry has not.
    static void setOn(Landscape & landscape, const LayerEntry & entry, bool isOn);
    static void setOpacity(Landscape & landscape, const LayerEntry & entry, double opacity);
    /// Lets what is movable lie as in `entries`, the top one first: all of those that `of` gives, in any
    /// order. Each stays among those of its kind. False where that changes nothing.
    static bool setOrder(Landscape & landscape, const std::vector<LayerEntry> & entries);

    /// What is wrong with the source of an entry and why, in lines; empty where all is well. `failures` are
    /// all of the process.
    static std::string problemOf(const Landscape & landscape, const LayerEntry & entry,
                                 const std::vector<ReadFailure> & failures);
};
