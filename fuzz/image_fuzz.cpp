// Any bytes through every image reader: no crash, no hang, no memory beyond what the bytes justify.

#include <cstddef>
#include <cstdint>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/imagereader.h>
#include <nbx/object/errorhandler.h>

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    const NBX::SO<NBX::MemoryDataResource> bytes(
        new NBX::MemoryDataResource(data, static_cast<unsigned>(size)));
    const NBX::SO<NBX::Image> image = NBX::ImageReader::read(bytes.get(), NBX::ID());
    if (!image) return 0;
    for (int y = 0; y < image->height(); ++y)
        image->lineComponents(y);
    if (!image->copyToPow2(16)) __builtin_trap();
    return 0;
}
