#pragma once

#include <algorithm>
#include <cstdint>
#include <map>

#include <nbx/data/dataresource.h>
#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>

/// Another file, whose reads are counted: those that were begun, which alone cost anything, and their bytes.
class CountedFile : public ZMT::CORE::AsyncFile {
    NBX_TEMPLATE_CLASS(CountedFile, ZMT::CORE::AsyncFile)
public:
    struct Counts {
        unsigned begun = 0, waits = 0;
        std::uint64_t begunBytes = 0;
        std::uint64_t rereadBytes = 0; ///< of these, those of blocks that had been read before
        std::uint64_t wantedBytes = 0; ///< of all blocks that anybody ever asked for, each counted once
    };

    explicit CountedFile(const NBX::SO<ZMT::CORE::AsyncFile> & file) : file_(file) {}

    const Counts & counts() const { return counts_; }
    void resetCounts() {
        counts_ = {};
        blocks_.clear();
    }

    std::wstring url() const override { return file_->url(); }
    std::wstring errorText() const override { return file_->errorText(); }
    std::uint64_t size() const override { return file_->size(); }
    bool isOpen() const override { return file_->isOpen(); }
    using AsyncFile::requests;
    Requests requests() const override { return known_; }
    inline NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    using AsyncFile::remove;
    inline bool remove(const NBX::SO<Request> & request) override;

private:
    class CountedRequest;
    struct Block {
        bool isRead = false;
    };

    const NBX::SO<ZMT::CORE::AsyncFile> file_;
    Requests known_;
    Counts counts_;
    std::map<std::uint64_t, Block> blocks_;
};

class CountedFile::CountedRequest : public ZMT::CORE::AsyncFile::Request {
    NBX_TEMPLATE_CLASS(CountedRequest, ZMT::CORE::AsyncFile::Request)
public:
    CountedRequest(CountedFile * owner, const NBX::SO<Request> & inner, std::uint64_t size)
        : inner(inner), owner_(owner), size_(size) {}

    NBX::SO<ZMT::CORE::AsyncFile> file() const override { return owner_.lock(); }
    std::uint64_t offset() const override { return inner->offset(); }
    NBX::SO<NBX::DataResource> data() const override { return inner->data(); }
    double priority() const override { return inner->priority(); }
    ZMT::CORE::AsyncFile::RequestState state() override { return note(inner->state()); }
    std::int64_t transferredBytes() const override { return inner->transferredBytes(); }
    bool wait() override {
        if (const NBX::SO<CountedFile> owner = owner_.lock()) ++owner->counts_.waits;
        const bool isReady = inner->wait();
        note(inner->state());
        return isReady;
    }
    std::wstring errorText() const override { return inner->errorText(); }
    bool setPriority(double priority) override { return inner->setPriority(priority); }

    const NBX::SO<Request> inner;

private:
    ZMT::CORE::AsyncFile::RequestState note(ZMT::CORE::AsyncFile::RequestState state) {
        const NBX::SO<CountedFile> owner = owner_.lock();
        if (!owner || state == ZMT::CORE::AsyncFile::RS_Queued) return state;
        Block & block = owner->blocks_[inner->offset()];
        if (!isBegun_) {
            ++owner->counts_.begun;
            owner->counts_.begunBytes += size_;
            if (block.isRead) owner->counts_.rereadBytes += size_;
        }
        isBegun_ = true;
        block.isRead = block.isRead || state == ZMT::CORE::AsyncFile::RS_Ready;
        return state;
    }

    NBX::WO<CountedFile> owner_;
    const std::uint64_t size_;
    bool isBegun_ = false;
};

inline NBX::SO<ZMT::CORE::AsyncFile::Request> CountedFile::request(std::uint64_t offset, std::uint64_t size,
                                                                   double priority) {
    const NBX::SO<Request> inner = file_->request(offset, size, priority);
    if (!inner) return nullptr;
    if (blocks_.try_emplace(offset).second) counts_.wantedBytes += size;
    return known_.emplace_back(new CountedRequest(this, inner, size));
}

inline bool CountedFile::remove(const NBX::SO<Request> & request) {
    const auto found = std::find(known_.begin(), known_.end(), request);
    if (found == known_.end()) return false;
    request->state(); // it may have begun since it was last looked at
    known_.erase(found);
    return file_->remove(static_cast<CountedRequest &>(*request).inner);
}
