#pragma once

namespace ZMT::CORE {

/// Start-up of the plug-ins that lie beside the product.
class Plugin {
public:
    /// Loads the libraries named by the marker files "zmt_x64_*.qpi" in the folders "plugins/" beside this
    /// library and beside the program. Each line of a marker file is the path of one library, absolute or
    /// relative to the marker file's folder; files with "_debug_" in their name are left out. What is loaded
    /// and what fails is told on the standard error stream; nothing throws.
    static void InitializePlugins();
};

} // namespace ZMT::CORE
