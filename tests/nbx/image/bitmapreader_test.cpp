#include <nbx/image/bitmapreader.h>

#include "codectest.h"

using namespace NBX;

namespace {

using Bytes = std::vector<unsigned char>;

SO<Image> decodeBitmap(const DataResource * data) {
    return SO<BitmapReader>(new BitmapReader())->read(data);
}

SO<Image> decodeBitmap(const Bytes & bytes) {
    return decodeBitmap(resourceOf(bytes.data(), bytes.size()).get());
}

void put(Bytes & bytes, unsigned value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

/// `descriptor` 0x20 begins at the top.
Bytes tga(int kind, int width, int height, int bits, const Bytes & pixels, unsigned descriptor = 0) {
    Bytes file = {0, 0, static_cast<unsigned char>(kind), 0, 0, 0, 0, 0, 0, 0, 0, 0};
    put(file, static_cast<unsigned>(width), 2);
    put(file, static_cast<unsigned>(height), 2);
    put(file, static_cast<unsigned>(bits), 1);
    put(file, descriptor, 1);
    file.insert(file.end(), pixels.begin(), pixels.end());
    return file;
}

/// Lines begin at multiples of four bytes; a negative height begins at the top.
Bytes bmp(int width, int height, unsigned bits, const Bytes & pixels) {
    Bytes file = {'B', 'M'};
    put(file, static_cast<unsigned>(54 + pixels.size()), 4);
    put(file, 0, 4);
    put(file, 54, 4);
    put(file, 40, 4);
    put(file, static_cast<unsigned>(width), 4);
    put(file, static_cast<unsigned>(height), 4);
    put(file, 1, 2);
    put(file, bits, 2);
    for (int i = 0; i < 6; ++i)
        put(file, 0, 4);
    file.insert(file.end(), pixels.begin(), pixels.end());
    return file;
}

std::vector<int> bitmapLine(const Image & image, int y) {
    const unsigned char * line = image.lineComponentsU8(y);
    return std::vector<int>(line, line + image.width() * image.numberOfLayers());
}

using Ints = std::vector<int>;

/// Two pixels a line; blue stands first in the file.
const Bytes s_lowLine = {3, 2, 1, 6, 5, 4}, s_highLine = {9, 8, 7, 12, 11, 10};

Bytes twoLines(bool padded) {
    Bytes pixels = s_lowLine;
    if (padded) put(pixels, 0, 2);
    pixels.insert(pixels.end(), s_highLine.begin(), s_highLine.end());
    if (padded) put(pixels, 0, 2);
    return pixels;
}

} // namespace

TEST(BitmapReaderTest, LinesOfTgaStandAsTheDescriptorSays) {
    const SO<Image> fromBelow = decodeBitmap(tga(2, 2, 2, 24, twoLines(false)));
    ASSERT_TRUE(fromBelow);
    EXPECT_EQ(fromBelow->layerSequence(), LS_RGB);
    EXPECT_EQ(bitmapLine(*fromBelow, 0), (Ints{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(bitmapLine(*fromBelow, 1), (Ints{7, 8, 9, 10, 11, 12}));
    const SO<Image> fromTop = decodeBitmap(tga(2, 2, 2, 24, twoLines(false), 0x20));
    ASSERT_TRUE(fromTop);
    EXPECT_EQ(bitmapLine(*fromTop, 1), (Ints{1, 2, 3, 4, 5, 6}));
}

TEST(BitmapReaderTest, RunsOfTgaAreSpreadOut) {
    const SO<Image> image = decodeBitmap(tga(10, 4, 1, 32, {0x82, 3, 2, 1, 40, 0x00, 6, 5, 4, 50}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->layerSequence(), LS_RGBA);
    EXPECT_EQ(bitmapLine(*image, 0), (Ints{1, 2, 3, 40, 1, 2, 3, 40, 1, 2, 3, 40, 4, 5, 6, 50}));
}

TEST(BitmapReaderTest, GreyTgaIsLuminance) {
    const SO<Image> image = decodeBitmap(tga(3, 3, 1, 8, {10, 20, 30}));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->layerSequence(), LS_Luminance);
    EXPECT_EQ(bitmapLine(*image, 0), (Ints{10, 20, 30}));
}

TEST(BitmapReaderTest, BmpBeginsBelowOrByANegativeHeightAtTheTop) {
    const SO<Image> fromBelow = decodeBitmap(bmp(2, 2, 24, twoLines(true)));
    ASSERT_TRUE(fromBelow);
    EXPECT_EQ(fromBelow->layerSequence(), LS_RGB);
    EXPECT_EQ(bitmapLine(*fromBelow, 0), (Ints{1, 2, 3, 4, 5, 6}));
    const SO<Image> fromTop = decodeBitmap(bmp(2, -2, 24, twoLines(true)));
    ASSERT_TRUE(fromTop);
    EXPECT_EQ(bitmapLine(*fromTop, 1), (Ints{1, 2, 3, 4, 5, 6}));
}

TEST(BitmapReaderTest, HeadersTellWhatReadingGives) {
    for (const Bytes & file : {tga(2, 2, 2, 24, twoLines(false)), bmp(2, -2, 24, twoLines(true)),
                               tga(3, 3, 1, 8, {10, 20, 30}), bmp(1, 1, 32, {1, 2, 3, 4})}) {
        const auto header = BitmapReader::readHeader(resourceOf(file.data(), file.size()).get());
        const SO<Image> image = decodeBitmap(file);
        ASSERT_TRUE(header && image);
        EXPECT_EQ(header->width, image->width());
        EXPECT_EQ(header->height, image->height());
        EXPECT_EQ(header->layerSequence, image->layerSequence());
    }
}

TEST(BitmapReaderTest, EveryBeginningGivesNull) {
    for (const Bytes & file : {tga(2, 2, 2, 24, twoLines(false)), bmp(2, 2, 24, twoLines(true)),
                               tga(10, 4, 1, 32, {0x82, 3, 2, 1, 40, 0x00, 6, 5, 4, 50})}) {
        // What pads the last line may lack.
        const std::size_t whole = file[0] == 'B' ? file.size() - 2 : file.size();
        expectNoImageFromAnyBeginning(*resourceOf(file.data(), whole),
                                      [](const DataResource * data) { return decodeBitmap(data); });
    }
}

TEST(BitmapReaderTest, ChangedBytesAreHarmless) {
    const auto read = [](const DataResource * data) { return decodeBitmap(data); };
    for (const Bytes & file :
         {tga(2, 2, 2, 24, twoLines(false)), bmp(2, 2, 24, twoLines(true)), bmp(4, 2, 16, Bytes(16, 0x5A)),
          bmp(1, 2, 32, Bytes(8, 0x5A)), tga(10, 4, 1, 32, {0x82, 3, 2, 1, 40, 0x00, 6, 5, 4, 50})})
        for (int i = 0; i < 20; ++i)
            expectChangedBytesAreHarmless(*resourceOf(file.data(), file.size()), read);
}

TEST(BitmapReaderTest, SizesThatTheDataCannotHoldAreRefused) {
    EXPECT_FALSE(decodeBitmap(tga(10, 16384, 16384, 32, {0xFF, 1, 2, 3, 4})));
    EXPECT_FALSE(decodeBitmap(bmp(30000, 30000, 24, {1, 2, 3, 4})));
    EXPECT_FALSE(decodeBitmap(bmp(1, INT32_MIN, 24, {1, 2, 3, 4})));
}

TEST(BitmapReaderTest, OtherDataGiveNull) {
    EXPECT_FALSE(decodeBitmap(nullptr));
    EXPECT_FALSE(decodeBitmap(Bytes()));
    EXPECT_FALSE(decodeBitmap(Bytes(100, 0)));
}
