#include "arrivals.h"

#include <zmt/core/misc/asyncfile.h>

bool Arrivals::haveEnded() {
    using ZMT::CORE::AsyncFile;
    const std::uint64_t bytes = AsyncFile::TotalTransferedBytes() + AsyncFile::TotalLocalBytes();
    const double now = NBX::NBXTime::now();
    if (bytes != bytes_) {
        bytes_ = bytes;
        lastByte_ = now;
    }
    return now - lastByte_ > s_patience;
}
