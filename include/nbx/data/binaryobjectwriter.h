#pragma once

#include <nbx/data/objectwriter.h>

namespace NBX {

/// Writes our own object format (docs/object-stream.md). `ObjectSaver` takes it where no other writer is
/// installed for the suffix.
class BinaryObjectWriter : public ObjectWriter {
    NBX_CLASS(BinaryObjectWriter, ObjectWriter)
public:
    BinaryObjectWriter();
    ~BinaryObjectWriter() override;

    /// Whether the files that are written from now on are deflated, which readers find out by themselves. At
    /// first they are not: they are written and read faster. For the whole process.
    static void enableCompression(bool enabled);
    static bool isCompressionEnabled();

    bool canWrite(const SharedObj * object) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    void write(const SharedObj * object, const std::string & path) override;
};

} // namespace NBX
