#include "util/occlusion/ambientocclusionshaders.h"

#include <cstdlib>
#include <filesystem>

#include <nbx/container/sequence/array.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/util/occlusion/ambientocclusion.h>

#include "support/glfixture.h"
#include "support/temporaryfolder.h"

namespace {

using ZMT::UTIL::AmbientOcclusionShaders;
using V = NBX::Vector3Base<double>;

class AmbientOcclusionShadersTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        before = std::filesystem::current_path();
        std::filesystem::current_path(std::getenv("TMPDIR"));
    }
    void TearDown() override {
        std::filesystem::current_path(before);
        AmbientOcclusionShaders::setReadsFiles(false);
        ZMT::UTIL::AmbientOcclusion::setIdBufferSize(1024);
        GLFixture::TearDown();
    }

    TemporaryFolder folder;
    std::filesystem::path before;
};

TEST_F(AmbientOcclusionShadersTest, AllProgramsAreMadeOnceAndLink) {
    for (const auto & get : {AmbientOcclusionShaders::getAtlasCreatorProgram,
                             AmbientOcclusionShaders::getTerrainTextureCreatorProgram,
                             AmbientOcclusionShaders::getTriangleBorderProgram,
                             AmbientOcclusionShaders::getLightingTextureBlendingProgram,
                             AmbientOcclusionShaders::getCopyProgram}) {
        EXPECT_TRUE(get()->use());
        EXPECT_EQ(get().get(), get().get());
    }
    NBX::GL2::ProgramObject::useNone();
}

TEST_F(AmbientOcclusionShadersTest, TheBoostProgramBeginsWithItsTwoConstants) {
    const std::string text = AmbientOcclusionShaders::intensityBoostText(false, 0.0F, 1.5F);
    EXPECT_EQ(0u, text.find("const float minValue = 0.00000000;\nconst float maxValue = 1.50000000;\n"));
    EXPECT_EQ(std::string::npos, text.find("ColorTex"));
    const std::string textured = AmbientOcclusionShaders::intensityBoostText(true, -1.0F, 0.25F);
    EXPECT_EQ(0u, textured.find("const float minValue = -1.00000000;\nconst float maxValue = 0.25000000;\n"));
    EXPECT_NE(std::string::npos, textured.find("texture2DProj(ColorTex, gl_TexCoord[1])"));
}

TEST_F(AmbientOcclusionShadersTest, TextsAreReadFromFilesWhereThatIsWanted) {
    EXPECT_FALSE(AmbientOcclusionShaders::readsFiles());
    std::ofstream("fragmentshader.glsl") << "uniform vec3 intensityPerLightDir;\nuniform float texelDelta;\n"
                                            "void main() { gl_FragColor = vec4(0.25 * "
                                            "intensityPerLightDir.x, 4.0 * texelDelta, 0.75, 1.0); }\n";
    std::ofstream("vertexshader.glsl")
        << "void main() { gl_Position = vec4(gl_MultiTexCoord0.xy * 2.0 - 1.0, 0.0, 1.0); }\n";
    AmbientOcclusionShaders::setReadsFiles(true);
    ZMT::UTIL::AmbientOcclusion::setIdBufferSize(8);
    const NBX::SO<NBX::PolygonSet> set(new NBX::PolygonSet(
        NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(std::vector<V>{{0, 0, 0}, {1, 0, 0}, {0, 0, 1}})));
    set->setTextureIterator(new NBX::Array<V>(std::vector<V>{{0, 0, 0}, {2, 0, 0}, {0, 2, 0}}));
    const auto image = ZMT::UTIL::AmbientOcclusion::createLightingTexture(
        set, nullptr, canvas, new NBX::Array<V>(std::vector<V>{{0, 0, 1}}));
    EXPECT_EQ((std::array<int, 4>{64, 128, 191, 255}), pixel(image, 3, 3));
    // The program of the border has no file here, which is reported.
    EXPECT_EQ(1u, reports.size()) << reports;
    EXPECT_EQ(2, reports.last().level);
    EXPECT_NE(std::wstring::npos, reports.last().message.find(L"atlasfillshader.glsl"));
    reports.clear();
}

TEST_F(AmbientOcclusionShadersTest, EveryProgramHasItsFiles) {
    AmbientOcclusionShaders::setReadsFiles(true);
    AmbientOcclusionShaders::getAtlasCreatorProgram();
    AmbientOcclusionShaders::getTerrainTextureCreatorProgram();
    AmbientOcclusionShaders::getTriangleBorderProgram();
    AmbientOcclusionShaders::getLightingTextureBlendingProgram();
    const wchar_t * const names[] = {L"vertexshader.glsl",         L"fragmentshader.glsl",
                                     L"vertexshader_terrain.glsl", L"fragmentshader_terrain.glsl",
                                     L"atlasfillshader.glsl",      L"renderfragmentshader.glsl"};
    ASSERT_EQ(6u, reports.size()) << reports;
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NE(std::wstring::npos, reports[i].message.find(names[i]));
    reports.clear();
}

} // namespace
