#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include <nbx/data/dataresource.h>
#include <nbx/object/progress.h>
#include <nbx/object/so.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/util/validation/filevalidation.h>

#include "byteranges.h"
#include "core/misc/recordfault.h"

namespace ZMT::UTIL {

/// The file that is checked: reads its ranges, collects what is wrong, and shows how far the check is. Used
/// by one thread.
class CheckedFile {
public:
    using Request = NBX::SO<CORE::AsyncFile::Request>;

    /// Both are borrowed.
    CheckedFile(CORE::AsyncFile & file, ValidationReport & report);

    std::uint64_t size() const { return size_; }
    /// True when nothing is to be read any more: the user cancelled, or too much could not be read.
    bool hasEnded() const { return hasEnded_; }
    /// Nothing was left out because of faults, so that what nobody refers to is superfluous.
    bool isAllSeen() const { return isAllSeen_; }
    void noteUnseen() { isAllSeen_ = false; }

    void fault(std::uint64_t offset, std::string what) { report_.add(offset, std::move(what)); }
    /// What is wrong with a record that begins at `offset`.
    void faults(std::uint64_t offset, const CORE::RecordFaults & faults);

    /// Begins to read a range inside of the file.
    Request ask(std::uint64_t offset, std::uint64_t size) const;
    /// The bytes of a range inside of the file, which may have been asked for. Null, noted as a fault, when
    /// they cannot be read, and once the check has ended.
    NBX::SO<NBX::DataResource> read(std::uint64_t offset, std::uint64_t size, const Request & asked = {});
    /// Reads a record; false as above, and for one that reaches beyond the end of the file.
    template <class Record> bool readRecord(std::uint64_t offset, Record & record, const char * name);

    /// Whether nothing has taken a byte from `begin` up to `end`.
    bool isFree(std::uint64_t begin, std::uint64_t end) const { return taken_.isFree(begin, end); }
    /// What is free belongs to something now.
    void take(std::uint64_t begin, std::uint64_t end);
    /// Where all was seen: notes what was not taken, but for what `isPadding`, where given, says to be so.
    void noteGaps(std::uint64_t begin, std::uint64_t end,
                  const std::function<bool(std::uint64_t, std::uint64_t)> & isPadding = {});
    /// Of the progress.
    void finish();

private:
    bool copyRecord(std::uint64_t offset, void * record, std::size_t size, const char * name);

    CORE::AsyncFile & file_;
    ValidationReport & report_;
    const std::uint64_t size_;
    NBX::Progress progress_;
    ByteRanges taken_;
    double done_ = 0.0;      ///< bytes that were taken
    std::uint64_t read_ = 0; ///< bytes that were read
    unsigned unreadable_ = 0;
    bool hasEnded_ = false;
    bool isAllSeen_ = true;
};

template <class Record>
bool CheckedFile::readRecord(std::uint64_t offset, Record & record, const char * name) {
    return copyRecord(offset, &record, sizeof record, name);
}

} // namespace ZMT::UTIL
