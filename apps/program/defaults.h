#pragma once

#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

/// What the user has written down once for all runs: a file of lines "option=value", with the long names of
/// options without their dashes, such as "exaggeration=2". Programs read it and never write it.
///
/// A line holds for every command that has such an option, as if it stood on the command line, where the same
/// option wins; of options that may be repeated too. "true" and "false" are for options without a value, and
/// an option of several values takes words with spaces between them.
class Defaults {
public:
    /// That of the user. Nothing where there is no such file; one that cannot be read is reported.
    static std::string userFile();
    explicit Defaults(const std::string & file = userFile());

    /// `arguments`, of which the first is the program, with what holds for the command that they name.
    std::vector<std::string> added(const CLI::App & app, const std::vector<std::string> & arguments);
    /// A line for each key that is no option of `app` or of any command below it.
    std::vector<std::string> warnings(const CLI::App & app) const;
    /// Where the options that `message` names and that `added` gave come from, to be put behind it; mostly
    /// empty.
    std::string originIn(const std::string & message) const;

private:
    std::string file_;
    std::map<std::string, std::string> values_;
    std::vector<std::string> added_; ///< keys
};
