#include <nbx/image/imagereader.h>

#include <nbx/data/file.h>
#include <nbx/data/objectloader.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/pngwriter.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

namespace {

SO<Image> picture() {
    return smoothImage(8, 4, LS_RGB);
}
SO<DataResource> jpeg() {
    return SO<JPEGWriter>(new JPEGWriter())->write(picture().get());
}
SO<DataResource> png() {
    return SO<PNGWriter>(new PNGWriter())->write(picture().get());
}
SO<DataResource> compressed() {
    return SO<CompressedImage>(new CompressedImage(CompressedImage::DXT1, picture().get()))->rawData();
}

} // namespace

TEST(ImageReaderTest, FirstBytesTellTheFormat) {
    for (const SO<DataResource> & data : {jpeg(), png(), compressed()})
        for (const char * format : {"", "image", "PNG"}) {
            const SO<Image> image = ImageReader::read(data.get(), ID(format));
            ASSERT_TRUE(image) << format;
            EXPECT_EQ(image->width(), 8);
            EXPECT_LT(rootMeanSquare(*image, *picture()), 8.0);
        }
}

TEST(ImageReaderTest, NamedFormatsAreTakenByTheirWord) {
    EXPECT_TRUE(ImageReader::read(jpeg().get(), ID("jpg")));
    EXPECT_TRUE(ImageReader::read(jpeg().get(), ID("jpeg")));
    EXPECT_TRUE(ImageReader::read(png().get(), ID("png")));
    EXPECT_TRUE(ImageReader::read(compressed().get(), ID("cprs")));
    EXPECT_FALSE(ImageReader::read(png().get(), ID("jpg")));
    EXPECT_FALSE(ImageReader::read(jpeg().get(), ID("png")));
    EXPECT_FALSE(ImageReader::read(png().get(), ID("cprs")));
}

TEST(ImageReaderTest, OtherDataGiveNull) {
    RecordedReports reports;
    EXPECT_FALSE(ImageReader::read(nullptr, ID()));
    EXPECT_FALSE(ImageReader::read(SO<MemoryDataResource>(new MemoryDataResource(0)).get(), ID()));
    EXPECT_FALSE(ImageReader::read(SO<MemoryDataResource>(new MemoryDataResource(50)).get(), ID()));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(ImageReaderTest, ReadsFilesForTheLoader) {
    const std::string path = File::temporaryFileName("nbx-image-reader-") + ".jpeg";
    const SO<DataResource> data = jpeg();
    File(path, WM_Create).write(data->pointer(), data->size());
    const SO<Image> image = soCast<Image>(ObjectLoader::readFile(path, Image::ClassNameNBX(), false));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->height(), 4);
    File::remove(path);
    File::remove(path.substr(0, path.size() - 5));
}

TEST(ImageReaderTest, ProducesImagesOnly) {
    const SO<ImageReader> reader(new ImageReader());
    EXPECT_TRUE(reader->canProduce(Image::ClassNameNBX()));
    EXPECT_TRUE(reader->canProduce(SharedObj::ClassNameNBX()));
    EXPECT_FALSE(reader->canProduce(ImageReader::ClassNameNBX()));
    EXPECT_TRUE(reader->hasSuffix("PNG"));
}
