#pragma once

#include <string>

#include <nbx/object/sharedobj.h>

namespace NBX::GL2 {

/// The text of a shader that was read from a file with the suffix "glsl", by `ObjectLoader::readFile`. Which
/// stage it is for, the one knows who asks for it.
class ShaderSource : public SharedObj {
    NBX_CLASS(ShaderSource, SharedObj)
public:
    /// Longer files are no shaders.
    static constexpr unsigned s_maxBytes = 1 << 20;

    explicit ShaderSource(const std::string & text) : text_(text) {}

    const std::string & text() const { return text_; }

private:
    std::string text_;
};

} // namespace NBX::GL2
