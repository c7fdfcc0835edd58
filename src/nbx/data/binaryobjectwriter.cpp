#include <nbx/data/binaryobjectwriter.h>

#include <atomic>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/objectstreamwriter.h>

namespace NBX {

NBX_CLASS_IMPL(BinaryObjectWriter, ObjectWriter)

namespace {

/// Files are written on any thread.
std::atomic<bool> s_isCompressionEnabled{false};

} // namespace

BinaryObjectWriter::BinaryObjectWriter() = default;

BinaryObjectWriter::~BinaryObjectWriter() = default;

void BinaryObjectWriter::enableCompression(bool enabled) {
    s_isCompressionEnabled = enabled;
}

bool BinaryObjectWriter::isCompressionEnabled() {
    return s_isCompressionEnabled;
}

bool BinaryObjectWriter::canWrite(const SharedObj * object) const {
    return object != nullptr;
}

std::string BinaryObjectWriter::objectFileSuffix() const {
    return "nbx";
}

std::string BinaryObjectWriter::objectFormatName() const {
    return "NBX objects";
}

void BinaryObjectWriter::write(const SharedObj * object, const std::string & path) {
    NBX_CHECK(object, L"no object");
    if (!object) return;
    using Form = ObjectStreamWriter::Form;
    AtomicFileWriter writer(path);
    ObjectStreamWriter::write(*object, writer.file(), true,
                              isCompressionEnabled() ? Form::Deflated : Form::Plain);
    writer.commit();
}

} // namespace NBX
