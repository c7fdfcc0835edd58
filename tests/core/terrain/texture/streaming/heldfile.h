#pragma once

#include <algorithm>
#include <vector>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>

/// A file in memory whose requests wait until the test moves them on. Counts what is asked of it.
class HeldFile : public ZMT::CORE::AsyncFile {
    NBX_TEMPLATE_CLASS(HeldFile, ZMT::CORE::AsyncFile)
public:
    class HeldRequest : public Request {
        NBX_TEMPLATE_CLASS(HeldRequest, Request)
    public:
        HeldRequest(HeldFile * file, std::uint64_t offset, std::uint64_t size, double priority)
            : file_(file), offset_(offset), size_(size), priority_(priority) {}

        NBX::SO<ZMT::CORE::AsyncFile> file() const override { return file_.lock(); }
        std::uint64_t offset() const override { return offset_; }
        NBX::SO<NBX::DataResource> data() const override {
            const NBX::SO<HeldFile> owner = file_.lock();
            const auto & bytes = owner->bytes;
            const auto first = std::min<std::uint64_t>(offset_, bytes.size());
            const auto size = std::min<std::uint64_t>(size_, bytes.size() - first);
            return new NBX::MemoryDataResource(bytes.data() + first, static_cast<unsigned>(size), false);
        }
        double priority() const override { return priority_; }
        RequestState state() override { return file_ ? now : RS_Failed; }
        std::int64_t transferredBytes() const override { return -1; }
        bool wait() override {
            const NBX::SO<HeldFile> owner = file_.lock();
            if (!owner) return false;
            ++owner->waits;
            if (owner->givesUp) return false;
            now = owner->failsWaits ? RS_Failed : RS_Ready;
            return !owner->failsWaits;
        }
        std::wstring errorText() const override { return L"held"; }
        bool setPriority(double priority) override {
            priority_ = priority;
            return true;
        }

        RequestState now = RS_Queued;

    private:
        NBX::WO<HeldFile> file_;
        std::uint64_t offset_, size_;
        double priority_;
    };

    explicit HeldFile(std::vector<std::uint8_t> content) : bytes(std::move(content)) {}

    using AsyncFile::remove;
    using AsyncFile::requests;
    std::wstring url() const override { return {}; }
    std::wstring errorText() const override { return {}; }
    std::uint64_t size() const override { return bytes.size(); }
    Requests requests() const override { return known; }
    NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override {
        ++asked;
        return known.emplace_back(new HeldRequest(this, offset, size, priority));
    }
    bool remove(const NBX::SO<Request> & request) override {
        const auto found = std::find(known.begin(), known.end(), request);
        if (found == known.end()) return false;
        known.erase(found);
        return true;
    }
    bool isOpen() const override { return true; }

    /// Of all requests that there are.
    void setStates(RequestState state) {
        for (const NBX::SO<Request> & request : known)
            static_cast<HeldRequest &>(*request).now = state;
    }
    /// Of the one for the block at `offset`; false where there is none.
    bool setState(std::uint64_t offset, RequestState state) {
        HeldRequest * const found = find(offset);
        if (found) found->now = state;
        return found;
    }
    HeldRequest * find(std::uint64_t offset) const {
        for (const NBX::SO<Request> & request : known)
            if (request->offset() == offset) return &static_cast<HeldRequest &>(*request);
        return nullptr;
    }

    std::vector<std::uint8_t> bytes;
    Requests known;
    unsigned asked = 0, waits = 0;
    bool failsWaits = false;
    bool givesUp = false; ///< those who wait lose their patience
};
