#pragma once

#include <memory>
#include <vector>

#include "readengine.h"

struct io_uring;

namespace ZMT::CORE::IMPL {

/// Hands reads to the kernel, which carries them out by itself: no thread, and one call of the system a read.
class RingReadEngine : public ReadEngine {
public:
    /// Null where the kernel has no such ring, or a container forbids it. `replacement` takes over for good
    /// when the ring refuses to take reads later on.
    static std::unique_ptr<RingReadEngine> create(ReadEngine & replacement);
    ~RingReadEngine() override;
    RingReadEngine(const RingReadEngine &) = delete;
    RingReadEngine & operator=(const RingReadEngine &) = delete;

    void start(FileRead & read) override;
    void poll() override;
    void wait(double seconds) override;

private:
    RingReadEngine(std::unique_ptr<io_uring> ring, ReadEngine & replacement);

    void prepare(FileRead & read);
    void submit();
    void abandon();

    std::unique_ptr<io_uring> ring_;
    ReadEngine & replacement_;
    std::vector<FileRead *> prepared_; ///< which the kernel has not yet taken, in their order
    bool isAbandoned_ = false;
};

} // namespace ZMT::CORE::IMPL
