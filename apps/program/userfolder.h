#pragma once

#include <string>

/// The folder "zmt" for the user's settings: below `XDG_CONFIG_HOME`, or else ".config" of the user; with a
/// '/' at its end. Empty where the environment names neither by an absolute path. It need not exist.
std::string userFolder();

/// `text` in letters that files of settings keep: all bytes but letters, digits and "-._~/:,+" become "%XX".
std::string percentEncoded(const std::string & text);
