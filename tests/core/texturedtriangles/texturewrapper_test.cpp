#include <zmt/core/texturedtriangles/texturewrapper.h>

#include <gtest/gtest.h>

#include <fstream>

#include <nbx/data/file.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/node/scenething.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/storedcopy.h>
#include <support/temporaryfolder.h>

namespace {

using namespace NBX;
using ZMT::CORE::TextureWrapper;

SO<ImageTexture2DGL> textureOf(int width, int height) {
    return new ImageTexture2DGL(new MemoryImage(width, height, LS_RGB), TextureGL::WM_Clamp,
                                TextureGL::WM_MirroredRepeat);
}

class TextureWrapperTest : public ::testing::Test {
protected:
    std::wstring fileOf(const std::string & name, int width, int height) {
        const std::string path = File::temporaryFileName("texture-") + name;
        const SO<Image> image(new MemoryImage(width, height, LS_RGB));
        image->setColor(0, 0, Color::red);
        const SO<MemoryDataResource> data =
            name.ends_with("png") ? PNGWriter().write(image.get()) : JPEGWriter().write(image.get());
        std::ofstream(path, std::ios::binary)
            .write(static_cast<const char *>(data->pointer()), std::streamsize(data->size()));
        return StringUtils::Utf8String2WString(path);
    }

    TemporaryFolder folder;
    RecordedReports reports;
};

TEST_F(TextureWrapperTest, HoldsATextureInMemory) {
    const SO<ImageTexture2DGL> texture = textureOf(20, 30);
    const SO<TextureWrapper> wrapper(new TextureWrapper(texture));
    EXPECT_FALSE(wrapper->isExtern());
    EXPECT_EQ(wrapper->getFileName(), L"");
    EXPECT_EQ(wrapper->getTexture(), texture);
    EXPECT_EQ(wrapper->getWidth(), 20);
    EXPECT_EQ(wrapper->getHeight(), 30);
    EXPECT_EQ(wrapper->getWrapS(), TextureGL::WM_Clamp);
    EXPECT_EQ(wrapper->getWrapT(), TextureGL::WM_MirroredRepeat);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TextureWrapperTest, NoTextureIsReported) {
    const SO<TextureWrapper> wrapper(new TextureWrapper(SO<ImageTexture2DGL>()));
    EXPECT_EQ(reports.count(0, L"texture", L"no texture"), 1U) << reports;
    EXPECT_EQ(wrapper->getWidth(), 0);
    EXPECT_FALSE(wrapper->getTexture());
}

TEST_F(TextureWrapperTest, ReadsAFileEachTimeThatTheTextureIsAskedFor) {
    for (const char * name : {"wall.png", "wall.jpg", "wall.jpeg", "WALL.JPEG"}) {
        SCOPED_TRACE(name);
        const SO<TextureWrapper> wrapper(
            new TextureWrapper(fileOf(name, 12, 7), TextureGL::WM_ClampToEdge, TextureGL::WM_MirroredRepeat));
        EXPECT_TRUE(wrapper->isExtern());
        EXPECT_EQ(wrapper->getWidth(), 12);
        EXPECT_EQ(wrapper->getHeight(), 7);
        const SO<ImageTexture2DGL> texture = wrapper->getTexture();
        ASSERT_TRUE(texture);
        EXPECT_EQ(texture->getImage()->width(), 12);
        EXPECT_EQ(texture->getWrapS(), TextureGL::WM_ClampToEdge);
        EXPECT_EQ(texture->getWrapT(), TextureGL::WM_MirroredRepeat);
        EXPECT_NE(wrapper->getTexture(), texture);
        EXPECT_EQ(texture->references(), 1) << "the wrapper keeps no image";
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TextureWrapperTest, JpegFilesBecomePlainImages) {
    const SO<TextureWrapper> wrapper(
        new TextureWrapper(fileOf("wall.jpeg", 8, 8), TextureGL::WM_Repeat, TextureGL::WM_Repeat));
    const SO<Image> image = wrapper->getTexture()->getImage();
    EXPECT_EQ(image->classInfoNBX(), MemoryImage::ClassInfoNBX());
    EXPECT_EQ(image->layerSequence(), LS_RGB);
}

TEST_F(TextureWrapperTest, OtherFilesGiveTheImageAsItIsRead) {
    const std::string path = File::temporaryFileName("texture-") + ".cprs";
    const SO<Image> image(new MemoryImage(8, 8, LS_RGB));
    const SO<CompressedImage> blocks(new CompressedImage(CompressedImage::DXT1, image.get()));
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char *>(blocks->rawData()->pointer()),
               std::streamsize(blocks->rawData()->size()));
    const SO<TextureWrapper> wrapper(new TextureWrapper(StringUtils::Utf8String2WString(path),
                                                        TextureGL::WM_Repeat, TextureGL::WM_Repeat));
    ASSERT_TRUE(wrapper->getTexture()) << reports;
    EXPECT_EQ(wrapper->getTexture()->getImage()->classInfoNBX(), CompressedImage::ClassInfoNBX());
}

TEST_F(TextureWrapperTest, AFileThatIsMissingIsReported) {
    const std::wstring path = fileOf("wall.png", 8, 8);
    const SO<TextureWrapper> wrapper(new TextureWrapper(path, TextureGL::WM_Repeat, TextureGL::WM_Repeat));
    File::remove(StringUtils::WString2Utf8String(path));
    EXPECT_FALSE(wrapper->getTexture());
    EXPECT_EQ(reports.count(0, L"image", L"image file not found:" + path), 1U) << reports;
    const SO<TextureWrapper> missing(new TextureWrapper(path, TextureGL::WM_Repeat, TextureGL::WM_Repeat));
    EXPECT_EQ(reports.count(0, L"image", L"image file not found"), 1U) << reports;
    EXPECT_EQ(missing->getWidth(), 0);
    EXPECT_TRUE(missing->isExtern());
}

TEST_F(TextureWrapperTest, AKnownSizeNeedsNoFile) {
    const SO<TextureWrapper> wrapper(
        new TextureWrapper(L"nowhere.png", TextureGL::WM_Clamp, TextureGL::WM_Repeat, 640, 480));
    EXPECT_EQ(wrapper->getWidth(), 640);
    EXPECT_EQ(wrapper->getHeight(), 480);
    EXPECT_EQ(wrapper->getWrapS(), TextureGL::WM_Clamp);
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(TextureWrapperTest, StandsInScenesInThePlaceOfATexture) {
    const SO<TextureWrapper> wrapper(new TextureWrapper(textureOf(2, 2)));
    EXPECT_EQ(wrapper->category(), TextureGL::ClassNameNBX());
    const SO<SceneThing> node(new SceneThing());
    node->append(wrapper.get());
    EXPECT_EQ(node->objects(), 1U);
}

TEST_F(TextureWrapperTest, EqualsThoseOfTheSameFileOrTexture) {
    const SO<ImageTexture2DGL> texture = textureOf(2, 2);
    const auto ofFile = [](const wchar_t * name) {
        return SO<TextureWrapper>(new TextureWrapper(name, TextureGL::WM_Repeat, TextureGL::WM_Repeat, 1, 1));
    };
    const SO<TextureWrapper> a(new TextureWrapper(texture)), b(new TextureWrapper(texture)),
        other(new TextureWrapper(textureOf(2, 2)));
    EXPECT_TRUE(*a == *b);
    EXPECT_FALSE(*a == *other);
    EXPECT_TRUE(*ofFile(L"a.png") == *ofFile(L"a.png"));
    EXPECT_FALSE(*ofFile(L"a.png") == *ofFile(L"b.png"));
    EXPECT_FALSE(*ofFile(L"a.png") == *a);
    EXPECT_FALSE(*ofFile(L"") == *ofFile(L"")) << "nothing is known of either";
}

TEST_F(TextureWrapperTest, StoredAndReadIsTheSame) {
    const SO<TextureWrapper> inFile = storedCopy(
        *SO<TextureWrapper>(new TextureWrapper(L"a.png", TextureGL::WM_Clamp, TextureGL::WM_Repeat, 5, 6)));
    EXPECT_EQ(inFile->getFileName(), L"a.png");
    EXPECT_EQ(inFile->getWrapS(), TextureGL::WM_Clamp);
    EXPECT_EQ(inFile->getWrapT(), TextureGL::WM_Repeat);
    EXPECT_EQ(inFile->getWidth(), 5);
    EXPECT_EQ(inFile->getHeight(), 6);
    const SO<TextureWrapper> inMemory = storedCopy(*SO<TextureWrapper>(new TextureWrapper(textureOf(3, 4))));
    EXPECT_FALSE(inMemory->isExtern());
    EXPECT_EQ(inMemory->getTexture()->getImage()->height(), 4);
}

TEST_F(TextureWrapperTest, StoresItsAttributesInTheirOrder) {
    const SO<TextureWrapper> wrapper(
        new TextureWrapper(L"a.png", TextureGL::WM_Clamp, TextureGL::WM_Repeat, 5, 6));
    EXPECT_EQ(RecordedAttributes::of(*wrapper),
              (std::vector<std::string>{"permanentTexture", "temporaryTexture", "wrapS", "wrapT", "width",
                                        "height", "imageFile"}));
}

TEST_F(TextureWrapperTest, DamagedStreamsAreRefusedOrGiveASoundWrapper) {
    const std::vector<std::uint8_t> bytes = ObjectStreamWriter::write(
        *SO<TextureWrapper>(new TextureWrapper(L"a.png", TextureGL::WM_Clamp, TextureGL::WM_Repeat, 5, 6)));
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (const int change : {1, 4, 0x80, 0xff}) {
            std::vector<std::uint8_t> damaged = bytes;
            damaged[i] = std::uint8_t(damaged[i] ^ change);
            try {
                const auto read =
                    soCast<TextureWrapper>(ObjectStreamReader(damaged.data(), damaged.size()).read());
                if (!read) continue;
                EXPECT_GE(read->getWidth(), 0);
                EXPECT_GE(read->getHeight(), 0);
                EXPECT_LE(read->getWrapS(), TextureGL::WM_MirroredRepeat);
                EXPECT_LE(read->getWrapT(), TextureGL::WM_MirroredRepeat);
            } catch (const Exception &) {
            }
        }
}

} // namespace
