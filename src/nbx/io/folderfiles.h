#pragma once

#include <map>
#include <string>
#include <vector>

namespace NBX {

/// Finds the files that a file from elsewhere names, in one folder and below it and nowhere else: absolute
/// paths, steps upwards, other schemes than files and links that lead out of the folder are refused. Names
/// are found whatever the case of their letters from A to Z; the one that is written as it is asked for comes
/// first. Made of the standard library alone. One instance belongs to one thread.
class FolderFiles {
public:
    /// A folder that does not exist holds nothing.
    explicit FolderFiles(const std::string & folder);

    struct Found {
        std::string path;    ///< a regular file, or empty
        std::string refusal; ///< why it was not looked for or not taken, as a part of a sentence, or empty
    };
    /// Both are empty where there is no such file. `reference` has '/' or '\' between its names, and may be
    /// written as in a URL.
    Found find(const std::string & reference) const;

    /// The last name of a reference.
    static std::string lastName(const std::string & reference);
    /// Without the escapes of URLs.
    static std::string unescaped(const std::string & reference);

private:
    using Names = std::vector<std::string>;

    Found findNames(const Names & names) const;
    std::string entry(const std::string & folder, const std::string & name) const;
    const Names & entries(const std::string & folder) const;

    std::string folder_; ///< without links; empty where there is none
    mutable std::map<std::string, Names> entries_;
};

} // namespace NBX
