#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <cpl_conv.h>
#include <gdal_priv.h>

#include "syntheticterrain.h"

/// A streaming terrain of 32769 by 32769 heights 30 units apart, and a streaming texture of 32768 by 32768
/// pixels on it. Both are built once, by the program, and stay in the folder `ZMT_LARGE_LANDSCAPE`, without
/// it in `zmt_large_landscape` below that of temporary files; that takes about 3 GB and some minutes.
///
/// What they are built from is virtual: a square of a quarter of the size, laid side by side with its mirror
/// images, so that nothing jumps where they meet.
class LargeLandscape {
public:
    static constexpr int s_part = 8192, s_parts = 4, s_pixels = s_part * s_parts;
    static constexpr double s_cell = 30.0, s_extent = s_cell * s_pixels;

    LargeLandscape() : folder_(chosenFolder()) {
        std::filesystem::create_directories(folder_);
        if (std::filesystem::exists(terrain()) && std::filesystem::exists(texture())) return;
        // In a process of its own, so that nothing of it is left in the one that measures.
        const pid_t child = ::fork();
        if (child == 0) ::_exit(build() ? 0 : 1);
        int status = 1;
        if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0)
            throw std::runtime_error("the large landscape cannot be built in " + folder_);
    }

    const std::string & folder() const { return folder_; }
    std::string terrain() const { return folder_ + "/heights.ztt"; }
    std::string texture() const { return folder_ + "/image.zts"; }

private:
    static std::string chosenFolder() {
        const char * folder = std::getenv("ZMT_LARGE_LANDSCAPE");
        return folder ? folder : (std::filesystem::temp_directory_path() / "zmt_large_landscape").string();
    }

    /// The program that was built beside this one.
    static std::string program() {
        return (std::filesystem::canonical("/proc/self/exe").parent_path() / "../apps/zmt/zmt").string();
    }

    bool run(const std::string & arguments) const {
        const std::string cache = "XDG_CACHE_HOME=" + folder_ + "/cache ";
        return std::system((cache + program() + " " + arguments).c_str()) == 0;
    }

    bool build() const {
        GDALAllRegister();
        GDALSetCacheMax64(256 << 20);
        if (!std::filesystem::exists(folder_ + "/image.vrt")) writeSources();
        const std::string heights = "build terrain " + folder_ + "/heights.vrt " + terrain() + " ";
        const std::string image = "build texture " + folder_ + "/image.vrt " + texture() + " ";
        const bool isBuilt = (std::filesystem::exists(terrain()) || run(heights + "--lighting none")) &&
                             run(image + "--format dxt1 --terrain " + terrain());
        std::error_code ignored;
        std::filesystem::remove_all(folder_ + "/cache", ignored);
        return isBuilt;
    }

    void writeSources() const {
        constexpr int size = s_part + 1;
        const auto raster = makeSyntheticTerrain(size);
        std::vector<std::uint16_t> heights(std::size_t(size) * size);
        std::transform(raster->cells(), raster->cells() + heights.size(), heights.begin(),
                       [](float h) { return static_cast<std::uint16_t>(1.0F + 4.0F * h); });
        for (int mirror = 0; mirror < 4; ++mirror)
            writeHeights(mirror, heights);
        for (int mirror = 0; mirror < 4; ++mirror)
            writeImage(mirror, heights);
        writeMosaic("heights", size, s_pixels + 1, "UInt16", 1);
        writeMosaic("image", s_part, s_pixels, "Byte", 3);
    }

    std::string part(const std::string & name, int mirror) const {
        return folder_ + "/" + name + std::to_string(mirror) + ".tif";
    }

    /// Place `i` of a line of `size`, turned round in mirror images.
    static int at(int i, int size, bool isMirrored) { return isMirrored ? size - 1 - i : i; }

    GDALDataset * newFile(const std::string & path, int size, int bands, GDALDataType type,
                          const char * compression) const {
        const char * options[] = {"TILED=YES", compression, bands == 3 ? "PHOTOMETRIC=YCBCR" : nullptr,
                                  nullptr};
        GDALDataset * file = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            path.c_str(), size, size, bands, type, const_cast<char **>(options));
        if (!file) ::_exit(1);
        return file;
    }

    void writeHeights(int mirror, const std::vector<std::uint16_t> & heights) const {
        constexpr int size = s_part + 1;
        GDALDataset * file = newFile(part("heights", mirror), size, 1, GDT_UInt16, "COMPRESS=LZW");
        std::vector<std::uint16_t> line(size);
        for (int y = 0; y < size; ++y) {
            const std::size_t row = std::size_t(at(y, size, mirror & 2)) * size;
            for (int x = 0; x < size; ++x)
                line[std::size_t(x)] = heights[row + std::size_t(at(x, size, mirror & 1))];
            if (file->GetRasterBand(1)->RasterIO(GF_Write, 0, y, size, 1, line.data(), size, 1, GDT_UInt16, 0,
                                                 0, nullptr) != CE_None)
                ::_exit(1);
        }
        GDALClose(file);
    }

    /// Colours of height and of the slope to the east.
    void writeImage(int mirror, const std::vector<std::uint16_t> & heights) const {
        GDALDataset * file = newFile(part("image", mirror), s_part, 3, GDT_Byte, "COMPRESS=JPEG");
        std::vector<std::uint8_t> line(std::size_t(s_part) * 3);
        for (int y = 0; y < s_part; ++y) {
            const std::size_t row = std::size_t(at(y, s_part, mirror & 2)) * (s_part + 1);
            for (int x = 0; x < s_part; ++x) {
                const std::uint16_t * h = &heights[row + std::size_t(at(x, s_part, mirror & 1))];
                const int light = std::clamp(128 + 6 * (h[1] - h[0]), 0, 255), height = h[0] / 32 % 256;
                std::uint8_t * pixel = &line[std::size_t(x) * 3];
                pixel[0] = static_cast<std::uint8_t>((light + height) / 2);
                pixel[1] = static_cast<std::uint8_t>(light);
                pixel[2] = static_cast<std::uint8_t>(255 - height);
            }
            if (file->RasterIO(GF_Write, 0, y, s_part, 1, line.data(), s_part, 1, GDT_Byte, 3, nullptr, 3,
                               s_part * 3, 1, nullptr) != CE_None)
                ::_exit(1);
        }
        GDALClose(file);
    }

    void writeMosaic(const std::string & name, int size, int whole, const std::string & type,
                     int bands) const {
        std::ofstream out(folder_ + "/" + name + ".vrt");
        // Heights lie on the corners of the pixels of the image.
        const int shift = whole % 2 != 0 ? static_cast<int>(s_cell / 2) : 0;
        out << "<VRTDataset rasterXSize=\"" << whole << "\" rasterYSize=\"" << whole
            << "\">\n<SRS>EPSG:32645</SRS>\n<GeoTransform>" << 400000 - shift << ", " << s_cell << ", 0, "
            << 3400000 + shift << ", 0, " << -s_cell << "</GeoTransform>\n";
        const char * colors[] = {"Red", "Green", "Blue"};
        for (int band = 1; band <= bands; ++band) {
            out << "<VRTRasterBand dataType=\"" << type << "\" band=\"" << band << "\">\n";
            if (bands == 3) out << "<ColorInterp>" << colors[band - 1] << "</ColorInterp>\n";
            for (int j = 0; j < s_parts; ++j)
                for (int i = 0; i < s_parts; ++i)
                    out << "<SimpleSource><SourceFilename relativeToVRT=\"1\">" << name << i % 2 + j % 2 * 2
                        << ".tif</SourceFilename><SourceBand>" << band
                        << "</SourceBand><SourceProperties RasterXSize=\"" << size << "\" RasterYSize=\""
                        << size << "\" DataType=\"" << type << "\" BlockXSize=\"256\" BlockYSize=\"256\"/>"
                        << "<SrcRect xOff=\"0\" yOff=\"0\" xSize=\"" << size << "\" ySize=\"" << size
                        << "\"/><DstRect xOff=\"" << i * s_part << "\" yOff=\"" << j * s_part << "\" xSize=\""
                        << size << "\" ySize=\"" << size << "\"/></SimpleSource>\n";
            out << "</VRTRasterBand>\n";
        }
        out << "</VRTDataset>\n";
    }

    const std::string folder_;
};
