#include <zmt/core/misc/jpgdecompressorthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegreader.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/wo.h>

#include <support/damagedfiles.h>
#include <support/recordedreports.h>

using namespace NBX;
using Codec = ZMT::CORE::JPGDecompressorThread;
using ZMT::CORE::Thread;

namespace {

using Bytes = std::vector<unsigned char>;

SO<MemoryImage> picture(int width, int height, LayerSequence sequence = LS_RGB) {
    SO<MemoryImage> image(new MemoryImage(width, height, sequence));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < image->numberOfLayers(); ++c)
                *image->pixelComponentsU8(x, y, c) =
                    static_cast<unsigned char>(128 + 90 * std::sin(0.2 * x + 0.11 * (c + 1) * y));
    return image;
}

SO<MemoryDataResource> resourceOf(const Bytes & bytes) {
    return new MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size()));
}

Bytes bytesOf(const DataResource & data) {
    const auto * start = static_cast<const unsigned char *>(data.pointer());
    return Bytes(start, start + data.size());
}

SO<MemoryDataResource> blockOf(int width, int height) {
    return Codec::buildJPGMipmaps(picture(width, height));
}

SO<MemoryDataResource> fileOf(int width, int height) {
    return SO<JPEGWriter>(new JPEGWriter(75))->write(picture(width, height).get());
}

unsigned numberAt(const Bytes & bytes, std::size_t at) {
    return bytes.at(at) | bytes.at(at + 1) << 8 | bytes.at(at + 2) << 16 |
           static_cast<unsigned>(bytes.at(at + 3)) << 24;
}

/// The files of a block, held against its bytes.
std::vector<Bytes> filesOf(const Bytes & block) {
    std::vector<Bytes> files;
    std::size_t at = 1;
    for (int i = 0; i < block.at(0); ++i) {
        const unsigned size = numberAt(block, at);
        files.emplace_back(block.begin() + static_cast<std::ptrdiff_t>(at) + 4,
                           block.begin() + static_cast<std::ptrdiff_t>(at + 4 + size));
        at += 4 + size;
    }
    EXPECT_EQ(at, block.size());
    return files;
}

SO<Image> decode(const Bytes & file) {
    const SO<JPEGReader> reader(new JPEGReader);
    reader->setProgressBarEnabled(false);
    return reader->read(resourceOf(file).get());
}

std::vector<std::pair<int, int>> levelSizes(int width, int height) {
    std::vector<std::pair<int, int>> sizes;
    for (const Bytes & file : filesOf(bytesOf(*blockOf(width, height)))) {
        const SO<Image> image = decode(file);
        sizes.emplace_back(image->width(), image->height());
    }
    return sizes;
}

/// Where the sizes of a JPEG file stand: height before width, 16 bits each, big-endian.
std::size_t sizesIn(const Bytes & bytes) {
    for (std::size_t i = 0; i + 9 < bytes.size(); ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) return i + 5;
    ADD_FAILURE() << "no frame";
    return 0;
}

/// Says in which thread it goes.
class WatchedResource : public MemoryDataResource {
    NBX_TEMPLATE_CLASS(WatchedResource, MemoryDataResource)
public:
    explicit WatchedResource(const Bytes & bytes)
        : MemoryDataResource(bytes.data(), static_cast<unsigned>(bytes.size())) {}
    ~WatchedResource() override {
        ++s_gone;
        if (std::this_thread::get_id() != s_home) ++s_goneElsewhere;
    }
    static inline std::atomic<int> s_gone{0}, s_goneElsewhere{0};
    static inline std::thread::id s_home;
};

/// Bytes that nobody gets before they are set free.
class HeldResource : public DataResource {
    NBX_TEMPLATE_CLASS(HeldResource, DataResource)
public:
    explicit HeldResource(const SO<MemoryDataResource> & data) : data_(data) {}
    void * pointer() const override {
        isReached_ = true;
        while (!isFree_)
            Thread::sleep(0.001);
        return data_->pointer();
    }
    unsigned size() const override { return data_->size(); }
    bool isWritable() const override { return false; }

    void waitUntilReached() const {
        while (!isReached_)
            Thread::sleep(0.001);
    }
    void setFree() { isFree_ = true; }

private:
    SO<MemoryDataResource> data_;
    std::atomic<bool> isFree_{false};
    mutable std::atomic<bool> isReached_{false};
};

/// One worker for all tests, since none ever ends.
Codec & codec() {
    static Codec & running = [&]() -> Codec & {
        const SO<Codec> made(new Codec);
        made->start();
        return *made;
    }();
    return running;
}

Codec::State outcomeOf(const SO<DataResource> & key) {
    const double begin = NBXTime::now();
    for (;;) {
        const Codec::State state = codec().getDecompressionState(key);
        if (state != Codec::Queued && state != Codec::Running) return state;
        if (NBXTime::now() - begin > 60.0) return state;
        Thread::sleep(0.001);
    }
}

Codec::State served(const SO<DataResource> & key, Codec::QueryType type) {
    codec().registerInputImage(key, type);
    return outcomeOf(key);
}

} // namespace

TEST(JPGDecompressorThread, ABlockIsItsLevelsBehindTheirSizes) {
    const SO<MemoryImage> image = picture(16, 8);
    const Bytes block = bytesOf(*Codec::buildJPGMipmaps(image));
    ASSERT_EQ(block.at(0), 2);
    const std::vector<Bytes> files = filesOf(block);
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(block.size(), 1 + 4 * 2 + files[0].size() + files[1].size());
    const SO<JPEGWriter> writer(new JPEGWriter(75));
    EXPECT_EQ(files[0], bytesOf(*writer->write(image.get())));
    const SO<MemoryImage> half(new MemoryImage(8, 4, LS_RGB));
    half->copy(image.get());
    EXPECT_EQ(files[1], bytesOf(*writer->write(half.get())));
}

TEST(JPGDecompressorThread, LevelsEndBeforeASideIsBelowFour) {
    using Sizes = std::vector<std::pair<int, int>>;
    EXPECT_EQ(levelSizes(5, 5), (Sizes{{5, 5}}));
    EXPECT_EQ(levelSizes(4, 4), (Sizes{{4, 4}}));
    EXPECT_EQ(levelSizes(8, 8), (Sizes{{8, 8}, {4, 4}}));
    EXPECT_EQ(levelSizes(1024, 8), (Sizes{{1024, 8}, {512, 4}}));
    EXPECT_EQ(levelSizes(17, 9), (Sizes{{17, 9}, {8, 4}}));
}

TEST(JPGDecompressorThread, APictureWithoutLevelsIsReportedOnce) {
    const RecordedReports reports;
    for (const auto & [width, height] : {std::pair(3, 100), std::pair(100, 3), std::pair(1, 1)})
        EXPECT_FALSE(Codec::buildJPGMipmaps(picture(width, height)));
    EXPECT_EQ(reports.size(), 1U) << reports;
    EXPECT_EQ(reports.count(2, L"false", L"jpg compression failed. No mipmaps have been created."), 1U);
}

TEST(JPGDecompressorThread, NoPictureAndNoDataAreReported) {
    RecordedReports reports;
    EXPECT_FALSE(Codec::buildJPGMipmaps(nullptr));
    EXPECT_EQ(reports.count(0, L"source", L"no image"), 1U) << reports;
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(nullptr));
    EXPECT_EQ(reports.count(0, L"data", L"no data"), 1U) << reports;
    codec().registerInputImage(nullptr, Codec::ConvertToS3);
    EXPECT_EQ(reports.count(0, L"data", L"no data"), 2U) << reports;
    EXPECT_EQ(reports.size(), 3U) << reports;
}

TEST(JPGDecompressorThread, OtherLayersBecomeColours) {
    const SO<MemoryImage> colours = picture(16, 16);
    const Bytes expected = bytesOf(*Codec::buildJPGMipmaps(colours));
    for (const LayerSequence sequence : {LS_BGRA, LS_RGBA, LS_BGR}) {
        const SO<MemoryImage> other(new MemoryImage(16, 16, sequence));
        other->copy(colours.get());
        EXPECT_EQ(bytesOf(*Codec::buildJPGMipmaps(other)), expected) << sequence;
    }
    const SO<Image> grey = decode(filesOf(bytesOf(*Codec::buildJPGMipmaps(picture(8, 8, LS_Luminance))))[0]);
    EXPECT_EQ(grey->layerSequence(), LS_RGB);
}

TEST(JPGDecompressorThread, S3BlocksFollowEachOtherWithoutAHeader) {
    const SO<MemoryDataResource> block = blockOf(32, 20);
    const SO<MemoryDataResource> s3 = Codec::jpgMipmaps2S3Mipmaps(block);
    ASSERT_TRUE(s3);
    Bytes expected;
    for (const Bytes & file : filesOf(bytesOf(*block))) {
        const SO<CompressedImage> level(new CompressedImage(CompressedImage::DXT1, decode(file).get(), L""));
        const Bytes raw = bytesOf(*level->rawData());
        expected.insert(expected.end(), raw.begin() + 16, raw.end());
    }
    // 32 by 20, 16 by 10 with a row of blocks that is half full, 8 by 5 with one that is a quarter full.
    EXPECT_EQ(expected.size(), 8U * (8 * 5 + 4 * 3 + 2 * 2));
    EXPECT_EQ(bytesOf(*s3), expected);
}

TEST(JPGDecompressorThread, EveryBeginningOfABlockIsRefused) {
    const Bytes sound = bytesOf(*blockOf(16, 16));
    const std::vector<Bytes> files = filesOf(sound);
    std::size_t levelEnd = 1;
    std::vector<std::size_t> sizes, ends; // where the sizes of levels end, and where the levels do
    for (const Bytes & file : files) {
        sizes.push_back(levelEnd + 4);
        ends.push_back(levelEnd += 4 + file.size());
    }
    for (std::size_t length = 0; length < sound.size(); ++length) {
        RecordedReports reports;
        ASSERT_FALSE(Codec::jpgMipmaps2S3Mipmaps(
            resourceOf(Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(length)))))
            << length;
        std::size_t end = 1; // how far it would have to reach
        for (std::size_t i = 0; i < files.size() && end <= length; ++i)
            end = sizes[i] > length ? sizes[i] : ends[i];
        EXPECT_EQ(reports.size(), 1U) << reports;
        EXPECT_EQ(reports.count(2, L"false",
                                L"jpg decompression failed: invalid buffer size: " + std::to_wstring(end) +
                                    L" != " + std::to_wstring(length)),
                  1U)
            << length << ", " << end << "\n"
            << reports;
    }
    EXPECT_TRUE(Codec::jpgMipmaps2S3Mipmaps(resourceOf(sound)));
}

TEST(JPGDecompressorThread, ALevelThatIsNoPictureIsRefused) {
    RecordedReports reports;
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf({1, 3, 0, 0, 0, 1, 2, 3})));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed."), 1U) << reports;
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf({1, 0, 0, 0, 0})));
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf({0})));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed."), 3U) << reports;
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf({1, 0xFF, 0xFF, 0xFF, 0xFF, 0})));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed: invalid buffer size: 4294967300 != 6"),
              1U)
        << reports;
}

TEST(JPGDecompressorThread, RandomChangesAreHarmless) {
    const RecordedReports reports;
    const Bytes sound = bytesOf(*blockOf(24, 16));
    std::mt19937 random(3);
    const ModestLook look(sound.size());
    for (unsigned i = 0; i < randomChanges(); ++i) {
        Bytes changed = sound;
        for (unsigned k = 0; k <= i % 3; ++k)
            changed[random() % changed.size()] = static_cast<unsigned char>(random());
        const SO<MemoryDataResource> s3 = Codec::jpgMipmaps2S3Mipmaps(resourceOf(changed));
        if (s3) {
            EXPECT_GT(s3->size(), 0U);
        }
    }
}

TEST(JPGDecompressorThread, SizesThatWouldTakeGigabytesAreRefused) {
    RecordedReports reports;
    // Enough bytes that the size would be possible: what stands behind a file's end is not looked at.
    Bytes file = bytesOf(*fileOf(16, 16));
    const std::size_t sizes = sizesIn(file);
    file.resize(8U << 20U, 0);
    for (std::size_t i = 0; i < 4; ++i)
        file[sizes + i] = 0xFD; // 65021 by 65021
    Bytes block = {1, 0, 0, 0x80, 0};
    block.insert(block.end(), file.begin(), file.end());
    const SO<MemoryDataResource> fileData = resourceOf(file), blockData = resourceOf(block);
    {
        const ModestLook look(1U << 20U);
        EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(blockData));
        EXPECT_EQ(served(fileData, Codec::DecompressJPG), Codec::Failed);
    }
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed."), 1U) << reports;
    codec().cancelQuery(fileData);
}

TEST(JPGDecompressorThread, LevelsTogetherAreBoundedAsWell) {
    // Levels of one colour, which take 400 bytes a megapixel in the file: together two gigabytes of blocks.
    const SO<MemoryImage> plain(new MemoryImage(8192, 2048, LS_Luminance));
    const Bytes file = bytesOf(*SO<JPEGWriter>(new JPEGWriter(75))->write(plain.get()));
    Bytes block = {255};
    for (int i = 0; i < 255; ++i) {
        for (int k = 0; k < 4; ++k)
            block.push_back(static_cast<unsigned char>(file.size() >> (8 * k)));
        block.insert(block.end(), file.begin(), file.end());
    }
    RecordedReports reports;
    const ModestLook look(1U << 20U);
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf(block)));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed."), 1U) << reports;
    block.resize(block.size() - file.size()); // nor where the last one is none
    EXPECT_FALSE(Codec::jpgMipmaps2S3Mipmaps(resourceOf(block)));
    EXPECT_EQ(reports.count(2, L"false", L"jpg decompression failed."), 2U) << reports;
}

TEST(JPGDecompressorThread, SidesOfLevelsAreReadFromTheirHeads) {
    using Sizes = std::vector<std::pair<int, int>>;
    const RecordedReports reports;
    const SO<MemoryDataResource> block = blockOf(33, 17);
    EXPECT_EQ(Codec::levelSizes(block), (Sizes{{33, 17}, {16, 8}, {8, 4}}));
    Bytes bytes = bytesOf(*block);
    bytes.pop_back();
    EXPECT_EQ(Codec::levelSizes(resourceOf(bytes)), Sizes());
    EXPECT_EQ(Codec::levelSizes(resourceOf({})), Sizes());
    EXPECT_EQ(Codec::levelSizes(nullptr), Sizes());
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(JPGDecompressorThread, DecodesAFileToItsPixels) {
    const SO<MemoryDataResource> file = fileOf(12, 9);
    ASSERT_EQ(served(file, Codec::DecompressJPG), Codec::Finished);
    const SO<CompressedImage> result = soCast<CompressedImage>(codec().getResult(file));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->compression(), 7);
    const SO<Image> expected = decode(bytesOf(*file));
    for (int y = 0; y < 9; ++y)
        EXPECT_EQ(0, std::memcmp(result->lineComponents(y), expected->lineComponents(y), 3 * 12));
    EXPECT_EQ(codec().getDecompressionState(file), Codec::Unknown);
    EXPECT_FALSE(codec().getResult(file));
}

TEST(JPGDecompressorThread, ConvertsABlock) {
    const SO<MemoryDataResource> block = blockOf(32, 32);
    ASSERT_EQ(served(block, Codec::ConvertToS3), Codec::Finished);
    const SO<DataResource> result = soCast<DataResource>(codec().getResult(block));
    ASSERT_TRUE(result);
    EXPECT_EQ(bytesOf(*result), bytesOf(*Codec::jpgMipmaps2S3Mipmaps(block)));
}

TEST(JPGDecompressorThread, AFailureStaysUntilItIsCancelledAndTheWorkerGoesOn) {
    const RecordedReports reports;
    Bytes cut = bytesOf(*blockOf(16, 16));
    cut.pop_back();
    const SO<MemoryDataResource> bad = resourceOf(cut), good = blockOf(16, 16);
    codec().registerInputImage(bad, Codec::ConvertToS3);
    codec().registerInputImage(good, Codec::ConvertToS3);
    EXPECT_EQ(outcomeOf(good), Codec::Finished);
    EXPECT_EQ(codec().getDecompressionState(bad), Codec::Failed);
    EXPECT_EQ(reports.count(2, L"false",
                            L"jpg decompression failed: invalid buffer size: " +
                                std::to_wstring(cut.size() + 1) + L" != " + std::to_wstring(cut.size())),
              1U)
        << reports;
    EXPECT_FALSE(codec().getResult(bad));
    EXPECT_EQ(codec().getDecompressionState(bad), Codec::Failed);
    codec().cancelQuery(bad);
    EXPECT_EQ(codec().getDecompressionState(bad), Codec::Unknown);
    EXPECT_TRUE(codec().getResult(good));
}

TEST(JPGDecompressorThread, AnUnknownTypeIsReportedAndForgotten) {
    const RecordedReports reports;
    const SO<MemoryDataResource> file = fileOf(8, 8);
    EXPECT_EQ(served(file, static_cast<Codec::QueryType>(2)), Codec::Unknown);
    EXPECT_EQ(reports.count(2, L"false", L"unexpected query type"), 1U) << reports;
}

TEST(JPGDecompressorThread, KeysAreTheSameByIdentityAlone) {
    const SO<MemoryDataResource> first = blockOf(8, 8), second = resourceOf(bytesOf(*first));
    ASSERT_EQ(served(first, Codec::ConvertToS3), Codec::Finished);
    EXPECT_EQ(codec().getDecompressionState(second), Codec::Unknown);
    EXPECT_TRUE(codec().getResult(first));
}

TEST(JPGDecompressorThread, ServesInTheOrderOfRegistrationAndGivesAllThatIsFinished) {
    const SO<HeldResource> held(new HeldResource(fileOf(8, 8)));
    codec().registerInputImage(held, Codec::DecompressJPG);
    held->waitUntilReached();
    EXPECT_EQ(codec().getDecompressionState(held), Codec::Running);
    std::vector<SO<MemoryDataResource>> keys;
    for (int i = 0; i < 5; ++i) {
        keys.push_back(blockOf(8 + 4 * i, 8));
        codec().registerInputImage(keys.back(), Codec::ConvertToS3);
    }
    for (const auto & key : keys)
        EXPECT_EQ(codec().getDecompressionState(key), Codec::Queued);
    EXPECT_FALSE(codec().getResult(keys[2]));
    EXPECT_EQ(codec().getDecompressionState(keys[2]), Codec::Queued) << "stays in the queue";
    EXPECT_EQ(codec().getFinishedRequests()->size(), 0U);
    held->setFree();
    ASSERT_EQ(outcomeOf(keys.back()), Codec::Finished);
    for (const auto & key : keys)
        EXPECT_EQ(codec().getDecompressionState(key), Codec::Finished) << "all before the last one";
    const auto all = codec().getFinishedRequests();
    ASSERT_EQ(all->size(), 6U);
    for (const Codec::FinishedRequest & request : *all)
        if (request.first != held) {
            EXPECT_EQ(bytesOf(*soCast<DataResource>(request.second)),
                      bytesOf(*Codec::jpgMipmaps2S3Mipmaps(request.first)));
        }
    for (const auto & key : keys)
        EXPECT_EQ(codec().getDecompressionState(key), Codec::Unknown);
    EXPECT_EQ(codec().getFinishedRequests()->size(), 0U);
}

TEST(JPGDecompressorThread, ACancelledQueryLeavesNoTrace) {
    const SO<HeldResource> held(new HeldResource(fileOf(8, 8)));
    const SO<MemoryDataResource> waiting = blockOf(8, 8), last = blockOf(8, 8);
    codec().registerInputImage(held, Codec::DecompressJPG);
    codec().registerInputImage(waiting, Codec::ConvertToS3);
    codec().registerInputImage(last, Codec::ConvertToS3);
    held->waitUntilReached();
    codec().cancelQuery(held);
    codec().cancelQuery(waiting);
    EXPECT_EQ(codec().getDecompressionState(held), Codec::Unknown);
    EXPECT_EQ(codec().getDecompressionState(waiting), Codec::Unknown);
    held->setFree();
    ASSERT_EQ(outcomeOf(last), Codec::Finished);
    EXPECT_EQ(codec().getDecompressionState(held), Codec::Unknown);
    EXPECT_FALSE(codec().getResult(held));
    const auto all = codec().getFinishedRequests();
    ASSERT_EQ(all->size(), 1U);
    EXPECT_EQ(all->get(0).first, last);
}

TEST(JPGDecompressorThread, ACancelledQueryMayBeRegisteredAnewWhileItRuns) {
    const SO<HeldResource> held(new HeldResource(blockOf(8, 8)));
    codec().registerInputImage(held, Codec::DecompressJPG); // is no file, so this fails
    held->waitUntilReached();
    codec().cancelQuery(held);
    codec().registerInputImage(held, Codec::ConvertToS3);
    EXPECT_EQ(codec().getDecompressionState(held), Codec::Queued);
    held->setFree();
    EXPECT_EQ(outcomeOf(held), Codec::Finished) << "the answer to the old query is dropped";
    EXPECT_TRUE(soCast<DataResource>(codec().getResult(held)));
    EXPECT_EQ(codec().getDecompressionState(held), Codec::Unknown);
}

TEST(JPGDecompressorThread, RegisteringTwiceIsOneRequest) {
    const SO<HeldResource> held(new HeldResource(fileOf(8, 8)));
    const SO<MemoryDataResource> key = blockOf(8, 8);
    codec().registerInputImage(held, Codec::DecompressJPG);
    held->waitUntilReached();
    codec().registerInputImage(key, Codec::DecompressJPG);
    codec().registerInputImage(key, Codec::ConvertToS3);
    held->setFree();
    EXPECT_EQ(outcomeOf(key), Codec::Finished);
    EXPECT_EQ(served(key, Codec::ConvertToS3), Codec::Finished) << "finished ones too";
    EXPECT_TRUE(codec().getResult(key));
    EXPECT_EQ(outcomeOf(held), Codec::Finished);
    EXPECT_TRUE(codec().getResult(held));
    EXPECT_EQ(codec().getFinishedRequests()->size(), 0U);
}

TEST(JPGDecompressorThread, InputsAreReleasedByThoseWhoAsk) {
    WatchedResource::s_home = std::this_thread::get_id();
    WatchedResource::s_gone = WatchedResource::s_goneElsewhere = 0;
    const Bytes block = bytesOf(*blockOf(64, 64));
    constexpr int count = 40;
    for (int i = 0; i < count; ++i) {
        const SO<WatchedResource> key(new WatchedResource(block));
        codec().registerInputImage(key, Codec::ConvertToS3);
        if (i % 3 == 0) codec().cancelQuery(key);
        if (i % 3 == 1) {
            while (codec().getDecompressionState(key) == Codec::Queued)
                Thread::sleep(0.0);
            codec().cancelQuery(key);
        }
    }
    const SO<MemoryDataResource> last = blockOf(8, 8);
    ASSERT_EQ(served(last, Codec::ConvertToS3), Codec::Finished);
    codec().getFinishedRequests();
    EXPECT_EQ(WatchedResource::s_gone, count);
    EXPECT_EQ(WatchedResource::s_goneElsewhere, 0);
}

TEST(JPGDecompressorThread, ManyThreadsMayAsk) {
    const Bytes block = bytesOf(*blockOf(16, 16)),
                expected = bytesOf(*Codec::jpgMipmaps2S3Mipmaps(resourceOf(block)));
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 25; ++i) {
                const SO<MemoryDataResource> key = resourceOf(block);
                codec().registerInputImage(key, Codec::ConvertToS3);
                if (i % 5 == 0) {
                    codec().cancelQuery(key);
                    ++right;
                    continue;
                }
                if (outcomeOf(key) != Codec::Finished) continue;
                const SO<DataResource> result = soCast<DataResource>(codec().getResult(key));
                // Callers convert with readers of their own.
                const SO<DataResource> own = Codec::jpgMipmaps2S3Mipmaps(key);
                right += result && bytesOf(*result) == expected && bytesOf(*own) == expected;
            }
        });
    for (std::thread & thread : threads)
        thread.join();
    EXPECT_EQ(right, 100);
}

TEST(JPGDecompressorThread, AStartedOneStaysWithoutItsOwner) {
    SO<Codec> own(new Codec);
    const WO<Codec> watched(own);
    own->start();
    const SO<MemoryDataResource> key = blockOf(8, 8);
    own->registerInputImage(key, Codec::ConvertToS3);
    own = nullptr;
    const SO<Codec> again = watched.lock();
    ASSERT_TRUE(again);
    while (again->getDecompressionState(key) != Codec::Finished)
        Thread::sleep(0.001);
    EXPECT_TRUE(again->isRunning());
    EXPECT_TRUE(again->getResult(key));
}

TEST(JPGDecompressorThread, AProcessEndsCleanlyWhileItWorks) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const int delay : {0, 1, 20}) {
        EXPECT_EXIT(
            {
                const Bytes block = bytesOf(*blockOf(256, 256));
                const SO<Codec> own(new Codec);
                own->start();
                for (int i = 0; i < 100; ++i)
                    own->registerInputImage(resourceOf(block), Codec::ConvertToS3);
                Thread::sleep(0.001 * delay);
                std::exit(7);
            },
            testing::ExitedWithCode(7), "")
            << delay;
    }
}

TEST(JPGDecompressorThread, NumbersOfTheInterfaceAreFixed) {
    EXPECT_EQ(Codec::DecompressJPG, 0);
    EXPECT_EQ(Codec::ConvertToS3, 1);
    EXPECT_EQ(
        (std::vector<int>{Codec::Unknown, Codec::Queued, Codec::Running, Codec::Failed, Codec::Finished}),
        (std::vector<int>{0, 1, 2, 3, 4}));
}
