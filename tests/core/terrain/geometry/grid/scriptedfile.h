#pragma once

#include <algorithm>
#include <cstring>
#include <set>
#include <vector>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/wo.h>
#include <zmt/core/misc/asyncfile.h>

/// A file in memory whose requests do what a test says. At first they wait in the queue; blocking waits end
/// them.
class ScriptedFile : public ZMT::CORE::AsyncFile {
    NBX_TEMPLATE_CLASS(ScriptedFile, ZMT::CORE::AsyncFile)
public:
    class ScriptedRequest;

    explicit ScriptedFile(std::vector<std::uint8_t> content) : bytes(std::move(content)) {}

    std::wstring url() const override { return L"scripted"; }
    std::wstring errorText() const override { return {}; }
    std::uint64_t size() const override { return bytes.size(); }
    using AsyncFile::requests;
    Requests requests() const override { return known; }
    inline NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) override;
    using AsyncFile::remove;
    bool remove(const NBX::SO<Request> & request) override { return std::erase(known, request) > 0; }
    bool isOpen() const override { return isOpenNow; }

    /// All that are known go on to `state`.
    inline void setAll(RequestState state);
    inline ScriptedRequest & at(std::size_t i) const;

    std::vector<std::uint8_t> bytes;
    Requests known;
    bool isOpenNow = true;
    bool failsAll = false; ///< what is waited for fails
    bool givesUp = false;  ///< those who wait lose their patience
    unsigned asked = 0;    ///< requests in all
    unsigned waits = 0;
};

class ScriptedFile::ScriptedRequest : public ZMT::CORE::AsyncFile::Request {
    NBX_TEMPLATE_CLASS(ScriptedRequest, ZMT::CORE::AsyncFile::Request)
public:
    ScriptedRequest(ScriptedFile * owner, std::uint64_t from, std::uint64_t bytes, double important)
        : file_(owner), offset_(from), size_(bytes), priority_(important) {}

    NBX::SO<ZMT::CORE::AsyncFile> file() const override { return file_.lock(); }
    std::uint64_t offset() const override { return offset_; }
    NBX::SO<NBX::DataResource> data() const override {
        const NBX::SO<ScriptedFile> owner = file_.lock();
        if (!owner || offset_ + size_ > owner->bytes.size()) return nullptr;
        return new NBX::MemoryDataResource(owner->bytes.data() + offset_, unsigned(size_ - cut));
    }
    double priority() const override { return priority_; }
    ZMT::CORE::AsyncFile::RequestState state() override { return now; }
    std::int64_t transferredBytes() const override { return transferred; }
    bool wait() override {
        const NBX::SO<ScriptedFile> owner = file_.lock();
        ++owner->waits;
        if (owner->givesUp) return false;
        now = owner->failsAll ? ZMT::CORE::AsyncFile::RS_Failed : ZMT::CORE::AsyncFile::RS_Ready;
        return !owner->failsAll;
    }
    std::wstring errorText() const override { return L"the cable was cut"; }
    bool setPriority(double priority) override {
        priority_ = priority;
        return true;
    }

    ZMT::CORE::AsyncFile::RequestState now = ZMT::CORE::AsyncFile::RS_Queued;
    std::int64_t transferred = -1;
    unsigned cut = 0; ///< bytes that are missing in the end

private:
    NBX::WO<ScriptedFile> file_;
    std::uint64_t offset_, size_;
    double priority_;
};

inline NBX::SO<ZMT::CORE::AsyncFile::Request> ScriptedFile::request(std::uint64_t offset, std::uint64_t size,
                                                                    double priority) {
    ++asked;
    return known.emplace_back(new ScriptedRequest(this, offset, size, priority));
}

inline void ScriptedFile::setAll(RequestState state) {
    for (const NBX::SO<Request> & request : known)
        static_cast<ScriptedRequest &>(*request).now = state;
}

inline ScriptedFile::ScriptedRequest & ScriptedFile::at(std::size_t i) const {
    return static_cast<ScriptedRequest &>(*known.at(i));
}
