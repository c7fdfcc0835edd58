#include "samplefiles.h"

#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

} // namespace

std::optional<SampleFiles> SampleFiles::in(const std::string & folder) {
    std::error_code error;
    const fs::path heights = fs::path(folder) / "everest_srtm3.tif";
    const fs::path image = fs::path(folder) / "everest_landsat7_rgb.tif";
    if (!fs::exists(heights, error) || !fs::exists(image, error)) return std::nullopt;
    return SampleFiles{heights.lexically_normal().string(), image.lexically_normal().string()};
}

std::optional<SampleFiles> SampleFiles::find() {
    std::error_code error;
    const fs::path programs = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error) return std::nullopt;
    // The first is the way from where programs are installed to where data is.
    for (const char * place : {ZMT_SAMPLE_FOLDER, "sample"})
        if (auto found = in((programs / place).string())) return found;
    return std::nullopt;
}
