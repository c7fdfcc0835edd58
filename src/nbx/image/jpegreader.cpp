// libjpeg-turbo reports errors by leaving the function, here by `longjmp`: each call into it that may do so
// stands in a small function with a `setjmp` of its own. Sizes are checked against the bytes that there are
// before memory is asked for. Lines come from the top and are stored from line `height - 1` down.

#include <nbx/image/jpegreader.h>

#include <array>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <memory>

#include <jpeglib.h>

#include <nbx/data/dataresource.h>
#include <nbx/image/memoryimage.h>
#include <nbx/object/progress.h>

namespace NBX {

NBX_CLASS_IMPL(JPEGReader, SharedObj)

namespace {

/// More pixels than the densest JPEG coding can put into a byte: a bit a block of 8 by 8 pixels.
constexpr std::uint64_t maxJpegPixelsPerByte = 1024;
/// A progressive file of more scans only wants to waste time.
constexpr int maxScans = 200;
/// So does one of more parts in front of its pixels.
constexpr int maxParts = 10000;

/// All state of the decoder that outlives a `longjmp`; the functions that may be left by one hold nothing
/// that needs a destructor.
struct JpegDecoder {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    jpeg_source_mgr source;
    jpeg_progress_mgr progress;
    std::jmp_buf failure;
};

[[noreturn]] void failDecoding(j_common_ptr info) {
    std::longjmp(static_cast<JpegDecoder *>(info->client_data)->failure, 1);
}

void ignoreDecoderMessage(j_common_ptr) {}
void ignoreLevel(j_common_ptr, int) {}
void doNothing(j_decompress_ptr) {}

boolean failAtEnd(j_decompress_ptr info) {
    failDecoding(reinterpret_cast<j_common_ptr>(info));
}

void skipBytes(j_decompress_ptr info, long count) {
    if (count <= 0) return;
    if (static_cast<std::size_t>(count) > info->src->bytes_in_buffer)
        failDecoding(reinterpret_cast<j_common_ptr>(info));
    info->src->next_input_byte += count;
    info->src->bytes_in_buffer -= static_cast<std::size_t>(count);
}

void limitScans(j_common_ptr info) {
    if (reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > maxScans) failDecoding(info);
}

void connect(JpegDecoder & decoder, const DataResource & data) {
    decoder.info.err = jpeg_std_error(&decoder.errors);
    decoder.errors.error_exit = failDecoding;
    decoder.errors.output_message = ignoreDecoderMessage;
    decoder.errors.emit_message = ignoreLevel;
    decoder.source.next_input_byte = static_cast<const JOCTET *>(data.pointer());
    decoder.source.bytes_in_buffer = data.size();
    decoder.source.init_source = doNothing;
    decoder.source.fill_input_buffer = failAtEnd;
    decoder.source.skip_input_data = skipBytes;
    decoder.source.resync_to_restart = jpeg_resync_to_restart;
    decoder.source.term_source = doNothing;
    decoder.progress.progress_monitor = limitScans;
    decoder.info.client_data = &decoder;
}

J_COLOR_SPACE outputSpace(J_COLOR_SPACE stored) {
    if (stored == JCS_GRAYSCALE) return JCS_GRAYSCALE;
    return stored == JCS_CMYK || stored == JCS_YCCK ? JCS_CMYK : JCS_RGB;
}

/// Reads up to the first pixel; false for data that cannot be read.
bool begin(JpegDecoder & decoder, unsigned dataSize, std::uint64_t maxPixels) {
    if (setjmp(decoder.failure)) return false;
    jpeg_create_decompress(&decoder.info);
    decoder.info.client_data = &decoder;
    decoder.info.src = &decoder.source;
    decoder.info.progress = &decoder.progress;
    jpeg_read_header(&decoder.info, TRUE);
    const std::uint64_t pixels = std::uint64_t{decoder.info.image_width} * decoder.info.image_height;
    if (pixels == 0 || pixels > maxPixels || pixels / maxJpegPixelsPerByte > dataSize) return false;
    decoder.info.out_color_space = outputSpace(decoder.info.jpeg_color_space);
    jpeg_start_decompress(&decoder.info);
    return true;
}

bool readLine(JpegDecoder & decoder, unsigned char * line) {
    if (setjmp(decoder.failure)) return false;
    JSAMPROW row = line;
    return jpeg_read_scanlines(&decoder.info, &row, 1) == 1;
}

bool finish(JpegDecoder & decoder) {
    if (setjmp(decoder.failure)) return false;
    return jpeg_finish_decompress(&decoder.info) == TRUE;
}

void destroy(JpegDecoder * decoder) {
    jpeg_destroy_decompress(&decoder->info);
    delete decoder;
}

/// Adobe's files hold the four inks inverted, which gives the light that they leave.
void convertInks(const unsigned char * inks, bool inverted, int count, unsigned char * rgb) {
    const unsigned char flip = inverted ? 0 : 255;
    for (int i = 0; i < count; ++i, inks += 4, rgb += 3)
        for (int c = 0; c < 3; ++c)
            rgb[c] = static_cast<unsigned char>(((inks[c] ^ flip) * (inks[3] ^ flip) + 127) / 255);
}

SO<Image> readLines(JpegDecoder & decoder, Progress * progress) {
    const int width = static_cast<int>(decoder.info.output_width);
    const int height = static_cast<int>(decoder.info.output_height);
    const int components = decoder.info.output_components;
    SO<MemoryImage> image(new MemoryImage(width, height, components == 1 ? LS_Luminance : LS_RGB));
    if (image->width() != width) return nullptr;
    std::vector<unsigned char> inks(components == 4 ? 4 * static_cast<std::size_t>(width) : 0);
    for (int y = height - 1; y >= 0; --y) {
        unsigned char * line = image->lineComponentsU8(y);
        if (!readLine(decoder, inks.empty() ? line : inks.data())) return nullptr;
        if (!inks.empty()) convertInks(inks.data(), decoder.info.saw_Adobe_marker, width, line);
        if (progress && !progress->update(height - y)) return nullptr;
    }
    return image;
}

/// The frame's mark; 0xC4, 0xC8 and 0xCC among them are others.
bool beginsFrame(unsigned mark) {
    return mark >= 0xC0 && mark <= 0xCF && mark != 0xC4 && mark != 0xC8 && mark != 0xCC;
}

/// The fields of a frame, which begin behind its length.
std::optional<ImageHeader> readFrame(const DataResource & data, unsigned offset) {
    std::array<unsigned char, 6> fields;
    if (data.read(offset, fields.data(), fields.size()) != fields.size()) return std::nullopt;
    const int height = fields[1] << 8 | fields[2], width = fields[3] << 8 | fields[4];
    if (width == 0 || height == 0) return std::nullopt;
    return ImageHeader{width, height, fields[5] == 1 ? LS_Luminance : LS_RGB, Image::UInt8};
}

} // namespace

std::optional<ImageHeader> JPEGReader::readHeader(const DataResource * data) {
    if (!recognizes(data)) return std::nullopt;
    std::array<unsigned char, 4> part; // 0xFF, a mark, and the length of what follows, itself included
    unsigned offset = 2;
    for (int i = 0; i < maxParts && data->read(offset, part.data(), part.size()) == part.size(); ++i) {
        if (part[0] != 0xFF) return std::nullopt;
        if (part[1] == 0xFF) { // fills up
            ++offset;
            continue;
        }
        if (beginsFrame(part[1])) return readFrame(*data, offset + 4);
        const unsigned bytes = static_cast<unsigned>(part[2]) << 8 | part[3];
        const bool startsPixels = part[1] == 0xDA || part[1] == 0xD9;
        if (startsPixels || bytes < 2 || bytes + 2 > data->size() - offset) return std::nullopt;
        offset += bytes + 2;
    }
    return std::nullopt;
}

bool JPEGReader::recognizes(const DataResource * data) {
    static constexpr std::array<unsigned char, 3> mark = {0xFF, 0xD8, 0xFF};
    std::array<unsigned char, mark.size()> start;
    return data && data->read(0, start.data(), start.size()) == start.size() && start == mark;
}

SO<Image> JPEGReader::read(const DataResource * data) {
    if (!recognizes(data)) return nullptr;
    std::unique_ptr<JpegDecoder, void (*)(JpegDecoder *)> decoder(new JpegDecoder(), destroy);
    connect(*decoder, *data);
    if (!begin(*decoder, data->size(), maxPixels_)) return nullptr;
    std::unique_ptr<Progress> progress;
    if (progressBarEnabled_)
        progress = std::make_unique<Progress>("Reading JPEG", decoder->info.output_height);
    SO<Image> image = readLines(*decoder, progress.get());
    if (!image || !finish(*decoder)) return nullptr;
    if (progress) progress->finish();
    return image;
}

} // namespace NBX
