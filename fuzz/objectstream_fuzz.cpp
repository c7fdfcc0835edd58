// Any bytes through the reader of object streams: no crash, no hang, no memory beyond what the bytes
// justify; and what was read can be written and read again. Objects that refer to each other in a circle stay
// for ever, so this runs with ASAN_OPTIONS=detect_leaks=0.

#include <cstddef>
#include <cstdint>

#include <nbx/container/map/dictionary.h>
#include <nbx/container/sequence/array.h>
#include <nbx/container/space/dynamicspacetree.h>
#include <nbx/data/objectstreamreader.h>
#include <nbx/data/objectstreamwriter.h>
#include <nbx/math/bounds.h>
#include <nbx/math/color.h>
#include <nbx/object/errorhandler.h>

// Classes that a stream may name, besides those of the library.
template class NBX::Array<double>;
template class NBX::Array<std::wstring>;
template class NBX::Array<NBX::Bounds>;
template class NBX::Array<NBX::SO<NBX::SharedObj>>;
template class NBX::Dictionary<std::wstring, NBX::Color>;
template class NBX::DynamicSpaceTree<int, 2>;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    NBX::ErrorHandler::setHandler([](const NBX::ErrorReport &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t * data, std::size_t size) {
    try {
        const NBX::SO<NBX::SharedObj> object = NBX::ObjectStreamReader(data, size).read();
        if (!object) return 0;
        const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*object);
        const NBX::SO<NBX::SharedObj> again = NBX::ObjectStreamReader(bytes.data(), bytes.size()).read();
        if (!again || NBX::ObjectStreamWriter::write(*again) != bytes) __builtin_trap();
    } catch (const NBX::Exception &) {
    }
    return 0;
}
