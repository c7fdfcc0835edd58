#pragma once

#include <optional>
#include <string>

/// A small landscape that comes with the programs.
struct SampleFiles {
    std::string heights, image;

    /// Where they lie beside the programs of this process: as they are installed, or in the folder of the
    /// build. None where they are missing.
    static std::optional<SampleFiles> find();
    /// The same in a folder.
    static std::optional<SampleFiles> in(const std::string & folder);
};
