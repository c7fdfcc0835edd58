#include <nbx/image/jpegwriter.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

#include <jpeglib.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/errorhandler.h>

#include "pixelline.h"

namespace NBX {

NBX_CLASS_IMPL(JPEGWriter, SharedObj)

namespace {

/// All state of the encoder that outlives a `longjmp`.
struct JpegEncoder {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    std::jmp_buf failure;
    unsigned char * buffer = nullptr; ///< grown by the library with malloc
    unsigned long bytes = 0;
};

[[noreturn]] void failEncoding(j_common_ptr info) {
    std::longjmp(static_cast<JpegEncoder *>(info->client_data)->failure, 1);
}

void ignoreEncoderMessage(j_common_ptr) {}

bool begin(JpegEncoder & encoder, unsigned width, unsigned height, bool grey, int quality) {
    if (setjmp(encoder.failure)) return false;
    jpeg_create_compress(&encoder.info);
    jpeg_mem_dest(&encoder.info, &encoder.buffer, &encoder.bytes);
    encoder.info.image_width = width;
    encoder.info.image_height = height;
    encoder.info.input_components = grey ? 1 : 3;
    encoder.info.in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&encoder.info);
    jpeg_set_quality(&encoder.info, quality, TRUE);
    jpeg_start_compress(&encoder.info, TRUE);
    return true;
}

bool writeLine(JpegEncoder & encoder, unsigned char * line) {
    if (setjmp(encoder.failure)) return false;
    JSAMPROW row = line;
    return jpeg_write_scanlines(&encoder.info, &row, 1) == 1;
}

bool finish(JpegEncoder & encoder) {
    if (setjmp(encoder.failure)) return false;
    jpeg_finish_compress(&encoder.info);
    return true;
}

void destroy(JpegEncoder * encoder) {
    jpeg_destroy_compress(&encoder->info);
    std::free(encoder->buffer);
    delete encoder;
}

bool writeLines(JpegEncoder & encoder, const Image & image, LayerSequence sequence) {
    std::vector<unsigned char> line(static_cast<std::size_t>(image.width()) *
                                    Image::numberOfLayers(sequence));
    for (int y = image.height() - 1; y >= 0; --y) {
        PixelLine::convert(image.lineComponents(y), image.layerSequence(), image.dataType(), line.data(),
                           sequence, Image::UInt8, image.width());
        if (!writeLine(encoder, line.data())) return false;
    }
    return true;
}

} // namespace

JPEGWriter::JPEGWriter(int quality) : quality_(std::clamp(quality, 1, 100)) {
    NBX_CHECK(1 <= quality && quality <= 100, L"JPEG quality is from 1 to 100: " << quality);
}

SO<MemoryDataResource> JPEGWriter::write(const Image * image) {
    NBX_CHECK(image, L"no image");
    if (!image || image->width() <= 0 || image->height() <= 0) return nullptr;
    if (std::max(image->width(), image->height()) > JPEG_MAX_DIMENSION) {
        NBX_FAILURE(L"image too large for JPEG: " << image->width() << L" x " << image->height());
        return nullptr;
    }
    const bool grey = image->numberOfLayers() < 3;
    std::unique_ptr<JpegEncoder, void (*)(JpegEncoder *)> encoder(new JpegEncoder(), destroy);
    encoder->info.err = jpeg_std_error(&encoder->errors);
    encoder->errors.error_exit = failEncoding;
    encoder->errors.output_message = ignoreEncoderMessage;
    encoder->info.client_data = encoder.get();
    if (!begin(*encoder, static_cast<unsigned>(image->width()), static_cast<unsigned>(image->height()), grey,
               quality_) ||
        !writeLines(*encoder, *image, grey ? LS_Luminance : LS_RGB) || !finish(*encoder) ||
        encoder->bytes > std::numeric_limits<unsigned>::max()) {
        NBX_FAILURE(L"JPEG encoding failed");
        return nullptr;
    }
    return new MemoryDataResource(encoder->buffer, static_cast<unsigned>(encoder->bytes), true);
}

} // namespace NBX
