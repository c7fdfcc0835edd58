#include "arrivals.h"

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <zmt/core/misc/asyncfile.h>

Arrivals::Progress Arrivals::present() {
    using ZMT::CORE::AsyncFile;
    return {std::uint64_t(AsyncFile::TotalTransferedBytes() + AsyncFile::TotalLocalBytes()),
            NBX::MainMemoryManager::instance()->total(), NBX::GraphicsMemoryManager::instance()->total()};
}

bool Arrivals::haveEnded(double now) {
    ++asks_;
    if (const Progress progress = present(); progress != progress_) {
        progress_ = progress;
        last_ = now;
        asks_ = 0;
    }
    return asks_ >= s_fewestAsks && now - last_ > s_patience;
}
