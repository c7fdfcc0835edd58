#include "core/terrain/texture/emptytexture.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/image/image.h>

using NBX::TextureGL;
using ZMT::CORE::EmptyTexture;

namespace {

const NBX::Color s_transparentWhite(1.0F, 1.0F, 1.0F, 0.0F);

TEST(EmptyTexture, IsOneObject) {
    ASSERT_TRUE(EmptyTexture::texture());
    EXPECT_EQ(EmptyTexture::texture(), EmptyTexture::texture());
}

/// In a process in which nobody has drawn it, which lets go of its pixels, or set its filters.
[[noreturn]] void exitWithResult() {
    const auto texture = NBX::soCast<NBX::ImageTexture2DGL>(EmptyTexture::texture());
    if (!texture || !texture->getImage()) std::_Exit(2);
    const NBX::Image & image = *texture->getImage();
    EXPECT_EQ(image.width(), 1);
    EXPECT_EQ(image.height(), 1);
    EXPECT_EQ(image.layerSequence(), NBX::LS_RGBA);
    EXPECT_EQ(image.dataType(), NBX::Image::UInt8);
    EXPECT_EQ(image.getColor(0, 0), s_transparentWhite);
    EXPECT_EQ(texture->getBorderColor(), s_transparentWhite);
    EXPECT_EQ(texture->getWrapS(), TextureGL::WM_Repeat);
    EXPECT_EQ(texture->getWrapT(), TextureGL::WM_Repeat);
    EXPECT_EQ(texture->getMinFilter(), TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(texture->getMagFilter(), TextureGL::FM_Linear);
    EXPECT_EQ(texture->getAnisotropy(), 1.0);
    EXPECT_EQ(texture->getMatrix(), NBX::Matrix4x4Base<double>());
    EXPECT_TRUE(texture->unrefsImageAfterBinding());
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(EmptyTextureDeathTest, IsTransparentWhiteEverywhere) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(exitWithResult(), testing::ExitedWithCode(0), "");
}

} // namespace
