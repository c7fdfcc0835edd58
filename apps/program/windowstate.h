#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a window keeps from one run to the next, in a file of lines "key=value". Values are percent-encoded.
/// The file is the program's: it is written anew each time, and nobody misses it.
struct WindowState {
    static constexpr std::size_t mostRecentFiles = 10;

    /// In points of the screen; x and y of the frame's upper left corner.
    struct Place {
        int x = 0, y = 0, width = 0, height = 0;
        bool operator==(const Place &) const = default;
    };

    /// The file of the user; empty where there is no folder for it.
    static std::string userFile();
    /// What of the file is missing or damaged is as in a new state; nothing is reported.
    static WindowState read(const std::string & file);
    /// In the place of the file, whose folder is made where it is missing. False where that cannot be, which
    /// is not reported either: a window closes all the same.
    bool write(const std::string & file) const;

    /// Puts a file or a URL at the front; of one that is there already that is the new place. What a URL
    /// knows of logins is not kept.
    void addRecentFile(const std::string & file);

    std::optional<Place> place;
    bool isMaximized = false;
    std::map<std::string, bool> panels;   ///< by name, whether they show
    std::string folder;                   ///< from which a file was chosen last; empty at first
    std::vector<std::string> recentFiles; ///< absolute paths and URLs, the latest first
    std::string theme = "system";         ///< or "light", or "dark"

    bool operator==(const WindowState &) const = default;
};
