#pragma once

#include <string>
#include <vector>

/// A vector file that lies on the ground.
struct OverlayOptions {
    std::string file;  ///< or its URL
    std::string layer; ///< empty for all that it has
    std::string style; ///< a style file or a specification; empty for the usual one
};

/// FILE or FILE,LAYER. A comma belongs to the name where a file is called so; in a URL it does not. Throws
/// `UsageError`.
OverlayOptions parseOverlay(const std::string & text);

/// Takes the files and styles of a command line in their order: a style is that of the file before it.
class OverlayList {
public:
    /// Fills `overlays`, which outlives this.
    explicit OverlayList(std::vector<OverlayOptions> & overlays) : overlays_(overlays) {}

    void addFile(const std::string & text);
    /// Throws `UsageError` without a file before it, and for a second style of one.
    void addStyle(const std::string & text);

private:
    std::vector<OverlayOptions> & overlays_;
};

/// The text of a specification, or what the style file of that name holds. Throws `DataError` and
/// `NBX::IOException` for a file that cannot be read.
std::string readStyle(const std::string & style);
/// Whether it is the name of a style file, and not a specification, which has "=".
bool isStyleFile(const std::string & style);
