// A JPEG mipmap block of 2048 by 2048 pixels to blocks of DXT1 on one thread, next to libjpeg-turbo decoding
// the same levels and stb_dxt compressing them in its normal mode. Both report the peak of signal to noise of
// the blocks against the decoded pixels, over all levels. The pictures: facades with edges and grain, and
// hills of fractal noise.

#include <zmt/core/misc/jpgdecompressorthread.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <jpeglib.h>

#define STB_DXT_IMPLEMENTATION
#define STB_DXT_STATIC
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include <stb_dxt.h>
#pragma GCC diagnostic pop

#include <nbx/image/compressedimage.h>
#include <nbx/image/memoryimage.h>

namespace {

constexpr int s_size = 2048;

using Bytes = std::vector<unsigned char>;

void set(NBX::Image & image, int x, int y, double r, double g, double b) {
    unsigned char * pixel = image.pixelComponentsU8(x, y);
    const double values[] = {r, g, b};
    for (int c = 0; c < 3; ++c)
        pixel[c] = static_cast<unsigned char>(std::fmin(255.0, std::fmax(0.0, values[c])));
}

NBX::SO<NBX::MemoryImage> facades() {
    NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(s_size, s_size, NBX::LS_RGB));
    std::mt19937 random(5);
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x) {
            const bool window = x % 137 < 67 && y % 153 < 89, frame = x % 137 < 73 && y % 153 < 95;
            const double light = 0.7 + 0.3 * std::sin(0.003 * x + 0.007 * y), grain = random() % 24;
            if (window)
                set(*image, x, y, 50 * light + grain, 70 * light + grain, 110 * light + grain / 2);
            else if (frame)
                set(*image, x, y, 240 * light, 238 * light, 230 * light);
            else
                set(*image, x, y, 190 * light + grain, 150 * light + grain, 110 * light + grain / 2);
        }
    return image;
}

NBX::SO<NBX::MemoryImage> hills() {
    NBX::SO<NBX::MemoryImage> image(new NBX::MemoryImage(s_size, s_size, NBX::LS_RGB));
    std::mt19937 random(7);
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x) {
            double height = 0.0;
            for (int octave = 0; octave < 7; ++octave)
                height += std::sin(0.004 * (1 << octave) * x + octave) *
                          std::cos(0.005 * (1 << octave) * y - octave) / (1 << octave);
            const double grain = static_cast<double>(random() % 16);
            set(*image, x, y, 100 + 60 * height + grain, 120 + 40 * height + grain,
                70 + 30 * std::sin(3 * height) + grain);
        }
    return image;
}

const NBX::SO<NBX::MemoryDataResource> & blockOf(int picture) {
    static const NBX::SO<NBX::MemoryDataResource> blocks[] = {
        ZMT::CORE::JPGDecompressorThread::buildJPGMipmaps(facades()),
        ZMT::CORE::JPGDecompressorThread::buildJPGMipmaps(hills())};
    return blocks[picture];
}

struct Picture {
    int width, height;
    Bytes pixels; ///< red, green, blue, from the top
};

Picture decode(const unsigned char * file, std::uint32_t size) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file, size);
    jpeg_read_header(&info, TRUE);
    jpeg_start_decompress(&info);
    Picture picture{static_cast<int>(info.output_width), static_cast<int>(info.output_height), {}};
    const std::size_t pitch = 3UL * info.output_width;
    picture.pixels.resize(pitch * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = &picture.pixels[pitch * info.output_scanline];
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return picture;
}

/// Sides are multiples of 4 here.
unsigned char * compress(const Picture & picture, unsigned char * out) {
    alignas(16) unsigned char block[64];
    for (int y = 0; y < picture.height; y += 4)
        for (int x = 0; x < picture.width; x += 4, out += 8) {
            for (int i = 0; i < 16; ++i) {
                std::memcpy(
                    block + 4 * i,
                    &picture.pixels[3UL * (static_cast<std::size_t>(y + i / 4) * picture.width + x + i % 4)],
                    3);
                block[4 * i + 3] = 255;
            }
            stb_compress_dxt_block(out, block, 0, STB_DXT_NORMAL);
        }
    return out;
}

std::vector<Picture> decodedLevels(const NBX::DataResource & block) {
    const auto * p = static_cast<const unsigned char *>(block.pointer());
    std::vector<Picture> levels;
    const int count = *p++;
    for (int i = 0; i < count; ++i) {
        std::uint32_t size;
        std::memcpy(&size, p, 4);
        levels.push_back(decode(p + 4, size));
        p += 4 + size;
    }
    return levels;
}

Bytes rivalBlocks(const NBX::DataResource & block) {
    Bytes out(s_size * s_size);
    unsigned char * end = out.data();
    for (const Picture & level : decodedLevels(block))
        end = compress(level, end);
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

/// `fromBottom`: the first row of blocks is the lowest one.
double signalToNoise(const NBX::DataResource & block, const unsigned char * s3, bool fromBottom) {
    double sum = 0.0, count = 0.0;
    for (const Picture & level : decodedLevels(block)) {
        const std::size_t bytes =
            NBX::CompressedImage::dataSize(NBX::CompressedImage::DXT1, level.width, level.height);
        const NBX::SO<NBX::CompressedImage> image(new NBX::CompressedImage(
            NBX::CompressedImage::newRawData(NBX::CompressedImage::DXT1, level.width, level.height, s3, bytes)
                .get()));
        s3 += bytes;
        const std::size_t pitch = 3UL * static_cast<std::size_t>(level.width);
        for (int y = 0; y < level.height; ++y) {
            const auto * line =
                static_cast<const unsigned char *>(static_cast<const NBX::Image &>(*image).lineComponents(y));
            const unsigned char * wanted =
                &level.pixels[pitch * static_cast<std::size_t>(fromBottom ? level.height - 1 - y : y)];
            for (std::size_t i = 0; i < pitch; ++i)
                sum += (line[i] - wanted[i]) * (line[i] - wanted[i]);
        }
        count += static_cast<double>(pitch) * level.height;
    }
    return 10.0 * std::log10(255.0 * 255.0 * count / sum);
}

void ownCodec(benchmark::State & state) {
    const auto & block = blockOf(static_cast<int>(state.range(0)));
    NBX::SO<NBX::DataResource> result;
    for (auto _ : state)
        result = ZMT::CORE::JPGDecompressorThread::jpgMipmaps2S3Mipmaps(block);
    state.counters["dB"] = signalToNoise(*block, static_cast<const unsigned char *>(result->pointer()), true);
}

void turboAndStb(benchmark::State & state) {
    const auto & block = blockOf(static_cast<int>(state.range(0)));
    Bytes result;
    for (auto _ : state)
        result = rivalBlocks(*block);
    state.counters["dB"] = signalToNoise(*block, result.data(), false);
}

void turboAlone(benchmark::State & state) {
    const auto & block = blockOf(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(decodedLevels(*block));
}

BENCHMARK(ownCodec)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);
BENCHMARK(turboAndStb)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);
BENCHMARK(turboAlone)->Unit(benchmark::kMillisecond)->Arg(0)->Arg(1);

} // namespace
