#include "dummyimage.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include <nbx/object/errorhandler.h>

namespace ZMT::UTIL {

NBX_CLASS_IMPL(DummyImage, NBX::Image)

namespace {

/// The block, made when a line is asked for, and those that were too short for a later image: pointers into
/// them may be in use.
struct Scratch {
    std::mutex mutex;
    unsigned images = 0;                            ///< guarded by `mutex`, as what follows
    std::vector<std::vector<unsigned char>> blocks; ///< the longest one last
};

Scratch & scratch() {
    static auto * shared = new Scratch;
    return *shared;
}

} // namespace

DummyImage::DummyImage(int width, int height)
    : Image(NBX::LS_RGBA, UInt8), m_width(std::max(width, 0)), m_height(std::max(height, 0)) {
    const std::lock_guard<std::mutex> lock(scratch().mutex);
    ++scratch().images;
}

DummyImage::~DummyImage() {
    const std::lock_guard<std::mutex> lock(scratch().mutex);
    if (--scratch().images == 0) scratch().blocks.clear();
}

const void * DummyImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, m_height);
    if (y < 0 || y >= m_height) return nullptr;
    const std::size_t bytes = bytesPerLine(m_width, NBX::LS_RGBA, UInt8, 1);
    const std::lock_guard<std::mutex> lock(scratch().mutex);
    std::vector<std::vector<unsigned char>> & blocks = scratch().blocks;
    if (blocks.empty() || blocks.back().size() < bytes) blocks.emplace_back(bytes);
    return blocks.back().data();
}

const void * DummyImage::pixelComponents(int x, int y, int component) const {
    NBX_CHECK_RANGE(0, x, m_width);
    NBX_CHECK_RANGE(0, y, m_height);
    NBX_CHECK_RANGE(0, component, numberOfLayers());
    if (x < 0 || x >= m_width || y < 0 || y >= m_height || component < 0 || component >= numberOfLayers())
        return nullptr;
    const auto * line = static_cast<const unsigned char *>(lineComponents(y));
    return line + std::size_t(x) * std::size_t(numberOfLayers()) + std::size_t(component);
}

unsigned DummyImage::scratchBytes() {
    const std::lock_guard<std::mutex> lock(scratch().mutex);
    return scratch().blocks.empty() ? 0 : static_cast<unsigned>(scratch().blocks.back().size());
}

} // namespace ZMT::UTIL
