#pragma once

#include <string>

#include "support/glfixture.h"

/// Tests of what is drawn in vertical bands.
class ColumnFixture : public GLFixture {
protected:
    /// One letter for each of eight columns of the picture's middle line.
    std::string columns() {
        const NBX::SO<NBX::Image> image = draw();
        std::string result;
        for (int x = 4; x < 64; x += 8) {
            const auto p = pixel(image, x, 32);
            result += p[0] && p[1] && p[2] ? 'w' : p[0] ? 'r' : p[1] ? 'g' : p[2] ? 'b' : '.';
        }
        return result;
    }

    /// What shows with a texture on each of the first units in turn: red for s below one half, green above.
    void expectTexturedColumns(const std::string & expected) {
        const unsigned char texels[] = {255, 0, 0, 0, 255, 0};
        GLuint texture = 0;
        glGenTextures(1, &texture);
        for (const unsigned unit : {0U, 1U}) {
            glActiveTexture(GL_TEXTURE0 + unit);
            glBindTexture(GL_TEXTURE_2D, texture);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 2, 1, 0, GL_RGB, GL_UNSIGNED_BYTE, texels);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
            glEnable(GL_TEXTURE_2D);
            EXPECT_EQ(expected, columns()) << "unit " << unit;
            glDisable(GL_TEXTURE_2D);
            glBindTexture(GL_TEXTURE_2D, 0);
        }
        glActiveTexture(GL_TEXTURE0);
        glDeleteTextures(1, &texture);
    }
};
