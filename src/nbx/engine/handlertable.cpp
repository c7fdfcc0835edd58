#include "handlertable.h"

#include <atomic>

#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

std::atomic<std::uint64_t> registrationCount{0};

} // namespace

void HandlerTable::add(Handler * handler) {
    NBX_CHECK(handler, L"no handler");
    if (!handler) return;
    const SO<Handler> held(handler);
    byTarget_[handler->target()].push_back(held);
    ++registrationCount;
}

void HandlerTable::find(const ID & service, const ID & target, std::vector<Handler *> & result) const {
    const auto found = byTarget_.find(target);
    if (found == byTarget_.end()) return;
    for (auto handler = found->second.rbegin(); handler != found->second.rend(); ++handler)
        if ((*handler)->service() == service) result.push_back(handler->get());
}

std::uint64_t HandlerTable::registrations() {
    return registrationCount;
}

} // namespace NBX
