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
#include <nbx/object/attributeruns.h>
#include <nbx/object/errorhandler.h>

// Classes that a stream may name, besides those of the library.
template class NBX::Array<double>;
template class NBX::Array<std::wstring>;
template class NBX::Array<NBX::Bounds>;
template class NBX::Array<NBX::SO<NBX::SharedObj>>;
template class NBX::Dictionary<std::wstring, NBX::Color>;
template class NBX::DynamicSpaceTree<int, 2>;

/// Takes numbers one by one, many at once, and from the middle of what is there.
class Numbers : public NBX::SharedObj {
    NBX_STORED_CLASS(Numbers, NBX::SharedObj)
public:
    void serialize(NBX::SerializationManager & m) override {
        m.enterObject();
        NBX::serializeSuperclass<NBX::SharedObj>(m, static_cast<NBX::SharedObj *>(this));
        auto size = static_cast<unsigned>(values_.size());
        m.attribute("size", size);
        if (m.isReading()) {
            if (size > m.bytesLeft()) throw NBX::IOError(L"stored numbers are more than their file");
            values_.resize(size);
            shorts_.resize(size);
        }
        const unsigned half = size / 2;
        const bool isWhole = NBX::attributes(m, "value", values_.data(), half) &&
                             NBX::attributes(m, "short", shorts_.data(), size) &&
                             NBX::attributes(m, "value", values_.data() + half, size - half);
        if (!isWhole) throw NBX::IOError(L"stored numbers are cut short");
    }

private:
    std::vector<unsigned> values_;
    std::vector<unsigned short> shorts_;
};

NBX_STORED_CLASS_IMPL(Numbers, NBX::SharedObj)

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
