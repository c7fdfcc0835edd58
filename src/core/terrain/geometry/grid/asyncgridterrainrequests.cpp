#include "asyncgridterrainrequests.h"

#include <vector>

#include <nbx/object/nbxtime.h>

#include "asyncgridterraintile.h"

namespace ZMT::CORE::GRID {

namespace {

double systemTime() {
    return NBX::NBXTime::now();
}

double (*s_clock)() = systemTime;

} // namespace

AsyncGridTerrainRequests & AsyncGridTerrainRequests::instance() {
    // Terrains may outlive everything that is destroyed at the end of the process.
    static AsyncGridTerrainRequests & requests = *new AsyncGridTerrainRequests;
    return requests;
}

double AsyncGridTerrainRequests::now() {
    return s_clock();
}

void AsyncGridTerrainRequests::setClock(double (*clock)()) {
    s_clock = clock ? clock : systemTime;
}

void AsyncGridTerrainRequests::want(const NBX::SO<AsyncFile::Request> & request,
                                    const AsyncGridTerrainTile * tile) {
    requests_[request] = {now(), tile};
}

void AsyncGridTerrainRequests::wantStarted(const NBX::SO<AsyncFile::Request> & request) {
    const auto known = requests_.find(request);
    const std::int64_t bytes = request->transferredBytes();
    if (known == requests_.end() || bytes <= known->second.bytes) return;
    known->second.bytes = bytes;
    known->second.time = now();
}

bool AsyncGridTerrainRequests::forget(const NBX::SO<AsyncFile::Request> & request) {
    return requests_.erase(request) > 0;
}

bool AsyncGridTerrainRequests::mayTake(bool blocking) {
    if (!blocking && tilesTakenThisFrame_ >= s_tilesPerFrame) return false;
    ++tilesTakenThisFrame_;
    return true;
}

void AsyncGridTerrainRequests::beginFrame() {
    tilesTakenThisFrame_ = 0;
    const double time = now();
    struct Ended {
        NBX::SO<AsyncFile::Request> request;
        NBX::WO<const AsyncGridTerrainTile> tile;
        bool hasFailed;
    };
    std::vector<Ended> ended;
    for (const auto & [request, wanted] : requests_) {
        const AsyncFile::RequestState state = request->state();
        const bool isStarted = state == AsyncFile::RS_Processing || state == AsyncFile::RS_Ready;
        if (time - wanted.time > (isStarted ? s_startedAge : s_queuedAge))
            ended.push_back({request, wanted.tile, state == AsyncFile::RS_Failed});
    }
    for (const Ended & entry : ended) {
        requests_.erase(entry.request);
        const NBX::SO<const AsyncGridTerrainTile> tile = entry.tile.lock();
        if (tile) tile->requestEnded(entry.request, entry.hasFailed);
        entry.request->cancel();
    }
}

} // namespace ZMT::CORE::GRID
