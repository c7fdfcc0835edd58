#include "checkedfile.h"

#include <cstring>
#include <utility>

#include <nbx/object/stringutils.h>

namespace ZMT::UTIL {

namespace {

/// A range is tried so often: servers have their moments.
constexpr unsigned s_tries = 3;
/// After so many ranges that cannot be read the check ends.
constexpr unsigned s_mostUnreadable = 3;
/// What is sound is read once. Damaged references may lead to the same bytes again and again.
constexpr std::uint64_t s_mostReads = 2;

} // namespace

CheckedFile::CheckedFile(CORE::AsyncFile & file, ValidationReport & report)
    : file_(file), report_(report), size_(file.size()),
      progress_("checking the file", static_cast<double>(size_)) {}

void CheckedFile::finish() {
    if (!report_.isCancelled) progress_.finish();
}

void CheckedFile::faults(std::uint64_t offset, const CORE::RecordFaults & faults) {
    for (const CORE::RecordFault & fault : faults)
        report_.add(offset + fault.offset, fault.what);
}

CheckedFile::Request CheckedFile::ask(std::uint64_t offset, std::uint64_t size) const {
    return file_.request(offset, size, CORE::AsyncFile::topPriority);
}

NBX::SO<NBX::DataResource> CheckedFile::read(std::uint64_t offset, std::uint64_t size,
                                             const Request & asked) {
    if (!hasEnded_ && !progress_.update(done_)) hasEnded_ = report_.isCancelled = true;
    if (!hasEnded_ && (read_ += size) > s_mostReads * size_) {
        fault(offset, "more is referred to than the file has; the rest is not checked");
        hasEnded_ = true;
    }
    if (hasEnded_) return nullptr;
    if (asked) {
        const NBX::SO<NBX::DataResource> data = asked->wait() ? asked->data() : nullptr;
        asked->cancel();
        if (data && data->size() == size) return data;
    }
    std::wstring problem;
    for (unsigned i = 0; i < s_tries; ++i)
        if (NBX::SO<NBX::DataResource> data = file_.readNow(offset, size, &problem)) return data;
    fault(offset,
          std::to_string(size) + " bytes cannot be read: " + NBX::StringUtils::WString2Utf8String(problem));
    noteUnseen();
    if (++unreadable_ == s_mostUnreadable) {
        fault(offset, "too much cannot be read; the rest is not checked");
        hasEnded_ = true;
    }
    return nullptr;
}

bool CheckedFile::copyRecord(std::uint64_t offset, void * record, std::size_t size, const char * name) {
    if (offset > size_ || size > size_ - offset) {
        fault(offset, std::string("the file ends inside of ") + name);
        noteUnseen();
        return false;
    }
    const NBX::SO<NBX::DataResource> data = read(offset, size);
    if (data) std::memcpy(record, data->pointer(), size);
    return bool(data);
}

void CheckedFile::take(std::uint64_t begin, std::uint64_t end) {
    taken_.take(begin, end);
    done_ += static_cast<double>(end - begin);
}

void CheckedFile::noteGaps(std::uint64_t begin, std::uint64_t end,
                           const std::function<bool(std::uint64_t, std::uint64_t)> & isPadding) {
    if (!isAllSeen_ || hasEnded_) return;
    taken_.forEachGap(begin, end, [&](std::uint64_t first, std::uint64_t last) {
        if (!hasEnded_ && !(isPadding && isPadding(first, last)))
            fault(first, std::to_string(last - first) + " bytes belong to nothing");
    });
}

} // namespace ZMT::UTIL
