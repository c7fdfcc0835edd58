#pragma once

#include <array>
#include <vector>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/texturegl.h>

/// The texels of all levels of a texture, read back from the card. The engine's context is current.
class TexelLevels {
public:
    TexelLevels(const NBX::TextureGL & texture, NBX::EngineGL * engine) {
        texture.bind(engine);
        for (GLint level = 0;; ++level) {
            GLint width = 0, height = 0;
            glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &width);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &height);
            if (width < 1 || height < 1) break;
            std::vector<unsigned char> texels(4U * unsigned(width) * unsigned(height));
            glGetTexImage(GL_TEXTURE_2D, level, GL_RGBA, GL_UNSIGNED_BYTE, texels.data());
            levels_.push_back({width, texels});
            if (width == 1 && height == 1) break;
        }
        glBindTexture(GL_TEXTURE_2D, 0);
    }

    unsigned levels() const { return unsigned(levels_.size()); }
    int width(unsigned level) const { return levels_.at(level).width; }
    /// Row 0 lies lowest.
    std::array<int, 4> at(unsigned level, int x, int y) const {
        const Level & found = levels_.at(level);
        const unsigned char * p = &found.texels.at(4U * unsigned(y * found.width + x));
        return {p[0], p[1], p[2], p[3]};
    }
    bool operator==(const TexelLevels &) const = default;

private:
    struct Level {
        int width;
        std::vector<unsigned char> texels;
        bool operator==(const Level &) const = default;
    };
    std::vector<Level> levels_;
};
