#include "texturetransfers.h"

#include <map>

namespace ZMT::CORE {

namespace {

constexpr unsigned s_uploadsPerFrame = 2;
constexpr double s_startLimit = 0.25; ///< seconds
constexpr double s_runLimit = 5.0;

struct Times {
    double first, last;
};

struct State {
    std::map<TextureTransfers::Request, Times> active;
    unsigned uploads = 0;
    std::uint64_t frame = 0;
    NBX::SO<NBX::Clock> clock;
};

State & state() {
    // Never destroyed: textures may go while libraries unload.
    static State & instance = *new State;
    return instance;
}

bool isOver(AsyncFile::Request & request, const Times & times, double now) {
    // One that failed stays for whoever wants to know.
    const bool waits = request.state() == AsyncFile::RS_Queued;
    return waits ? now - times.first >= s_startLimit : now - times.last >= s_runLimit;
}

} // namespace

void TextureTransfers::want(const Request & request) {
    const double time = now();
    state().active.try_emplace(request, Times{time, time}).first->second.last = time;
}

bool TextureTransfers::contains(const Request & request) {
    return state().active.count(request) != 0;
}

void TextureTransfers::end(const Request & request) {
    state().active.erase(request);
    request->cancel();
}

bool TextureTransfers::mayUpload(bool force) {
    return force || state().uploads < s_uploadsPerFrame;
}

void TextureTransfers::countUpload() {
    ++state().uploads;
}

void TextureTransfers::beginFrame() {
    state().uploads = 0;
    ++state().frame;
    const double time = now();
    auto & active = state().active;
    for (auto entry = active.begin(); entry != active.end();) {
        const Request request = entry->first;
        if (!isOver(*request, entry->second, time)) {
            ++entry;
            continue;
        }
        entry = active.erase(entry);
        request->cancel();
    }
}

std::uint64_t TextureTransfers::frame() {
    return state().frame;
}

double TextureTransfers::now() {
    const NBX::SO<NBX::Clock> & clock = state().clock;
    return clock ? clock->now() : NBX::Clock::systemClock()->now();
}

void TextureTransfers::setClock(const NBX::SO<NBX::Clock> & clock) {
    state().clock = clock;
}

} // namespace ZMT::CORE
