#include <nbx/image/imagewriter.h>

#include <nbx/data/file.h>
#include <nbx/data/objectloader.h>
#include <nbx/data/objectsaver.h>
#include <nbx/object/exception.h>

#include "support/recordedreports.h"
#include "testimages.h"

using namespace NBX;

TEST(ImageWriterTest, SuffixTellsTheFormat) {
    const SO<MemoryImage> image = smoothImage(12, 9, LS_RGB);
    const std::string base = File::temporaryFileName("nbx-image-writer-");
    for (const char * suffix : {".png", ".jpg", ".JPEG"}) {
        const std::string path = base + suffix;
        EXPECT_TRUE(ObjectSaver::write(image.get(), path));
        const bool isPNG = File::contents(path).at(1) == 'P';
        EXPECT_EQ(isPNG, suffix == std::string(".png"));
        const SO<Image> back = soCast<Image>(ObjectLoader::readFile(path, Image::ClassNameNBX(), false));
        ASSERT_TRUE(back) << suffix;
        EXPECT_LT(rootMeanSquare(*image, *back), isPNG ? 1e-9 : 5.0);
        File::remove(path);
    }
    File::remove(base);
}

TEST(ImageWriterTest, ImagesWithoutPixelsThrow) {
    RecordedReports reports;
    const SO<Image> none(new MemoryImage(0, 0, LS_RGB));
    EXPECT_THROW(SO<ImageWriter>(new ImageWriter())->write(none.get(), "/tmp/nbx-none.png"), IOException);
    EXPECT_FALSE(File::exists("/tmp/nbx-none.png"));
}

TEST(ImageWriterTest, TakesImagesOnly) {
    const SO<ImageWriter> writer(new ImageWriter());
    EXPECT_TRUE(writer->canWrite(randomImage(1, 1, LS_RGB).get()));
    EXPECT_FALSE(writer->canWrite(writer.get()));
}
