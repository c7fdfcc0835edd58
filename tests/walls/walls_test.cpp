// Which file may include which header: the order of the layers and folders, and
// the one home of every foreign library.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// The rooms of the tree, lowest first: a file includes its own room and those that stand before it. A file
/// belongs to the longest entry that its path begins with; its headers in src/ count like those in include/.
constexpr auto order = std::to_array<std::string_view>({
    "nbx/object",
    "nbx/container/sequence",
    "nbx/math",
    "nbx/container/map",
    "nbx/container/space",
    "nbx/data",
    "nbx/image",
    "nbx/image/atlas",
    "nbx/scene/base",
    "nbx/scene/attribute",
    "nbx/scene/view",
    "nbx/scene/shape",
    "nbx/scene/node",
    "nbx/text",
    "nbx/engine",
    "nbx/engine/standard",
    "nbx/gl/context",
    "nbx/gl/texture",
    "nbx/gl/offscreen",
    "nbx/gl/mesh",
    "nbx/gl/state",
    "nbx/gl/program",
    "nbx/gl/text",
    "nbx/gl/effect",
    "nbx/analysis",
    "nbx/io",
    "zmt/raster",
    "zmt/raster/vector",
    "zmt/raster/relief",
    "zmt/raster/gdal",
    "zmt/raster/gdal/vector",
    "zmt/core/http",
    "zmt/core/file",
    "zmt/core/misc",
    "zmt/core/cache",
    "zmt/core/terrain/frame",
    "zmt/core/terrain/geometry/base",
    "zmt/core/terrain/geometry/tin",
    "zmt/core/terrain/geometry/regular",
    "zmt/core/terrain/geometry/hybrid",
    "zmt/core/terrain/geometry/tree",
    "zmt/core/terrain/geometry/draped",
    "zmt/core/terrain/texture",
    "zmt/core/terrain/texture/vector",
    "zmt/core/terrain/geometry/view",
    "zmt/core/terrain/texture/dynamic",
    "zmt/core/terrain/geometry/chunked",
    "zmt/core/terrain/geometry/grid/model",
    "zmt/core/terrain/texture/streaming",
    "zmt/core/terrain/geometry/grid/creation",
    "zmt/core/terrain/geometry/grid",
    "zmt/core/terrain/inspect",
    "zmt/core/vector",
    "zmt/core/texturedtriangles",
    "zmt/core/texturedtriangles/texturedtriangletree_impl",
    "zmt/util",
    "zmt/util/compressedtexture",
    "zmt/util/hachures",
    "zmt/util/mesh",
    "zmt/util/validation",
    "zmt/util/mapping",
    "zmt/util/occlusion",
    "apps/program",
    "apps/landscape",
    "apps/scene",
    "apps/zmt",
    "apps/zmt_viewer/map",
    "apps/zmt_viewer",
});

/// Rooms beside each other: none of them includes another one.
constexpr std::array<std::string_view, 2> programs = {"apps/zmt", "apps/zmt_viewer"};

/// A room that holds more sources, or more headers, is two rooms.
constexpr std::size_t s_roomSize = 25;

/// A foreign library: its headers by pattern, and the files that may include them by pattern.
struct ForeignLibrary {
    const char * name;
    const char * headers;
    const char * homes;
};

const std::vector<ForeignLibrary> foreignLibraries = {
    {"OpenGL", "(GL|EGL|KHR|GLES\\d?)/.*", "(src|include)/nbx/gl/.*|(src|include|apps)/.*gl\\.(h|cpp)"},
    {"GDAL", "(gdal|ogr|cpl_|vrt|gnm).*", "src/raster/gdal/.*"},
    {"libjpeg", "jpeglib\\.h|jerror\\.h|jmorecfg\\.h|turbojpeg\\.h", "src/nbx/image/.*"},
    {"libpng", "png(conf)?\\.h", "src/nbx/image/.*"},
    {"stb", "stb.*", "src/nbx/image/.*"},
    {"deflate", "libdeflate\\.h|zlib\\.h|zconf\\.h", "src/nbx/data/.*"},
    {"Eigen", "(unsupported/)?Eigen/.*", "src/nbx/math/.*\\.cpp"},
    {"Assimp", "assimp/.*", "src/nbx/io/program/.*"},
    {"FreeType", "ft2build\\.h|freetype/.*", "src/nbx/text/.*"},
    {"HarfBuzz", "hb(-[a-z]+)?\\.h", "src/nbx/text/.*"},
    {"FriBidi", "fribidi.*\\.h", "src/nbx/text/.*"},
    {"pugixml", "pugi(xml|config)\\.hpp", "src/nbx/io/.*"},
    {"libzip", "zip(conf)?\\.h", "src/nbx/io/.*"},
    {"Qt", "Q[A-Za-z]+(/.*)?|q[a-z]+\\.h", "src/core/(http|misc)/.*|apps/zmt_viewer/.*"},
    {"liburing", "liburing(/.*|\\.h)", "src/core/file/.*\\.cpp"},
    {"CLI11", "CLI/.*", "apps/.*"},
    {"nlohmann-json", "nlohmann/.*", "apps/.*|src/nbx/io/program/.*"},
    {"platform",
     "(sys|linux|arpa|netinet)/.*|(unistd|fcntl|dlfcn|dirent|poll|pthread|sched|semaphore|signal|"
     "strings|spawn|fnmatch|glob|pwd|netdb|link|malloc)\\.h",
     "(src|apps)/.*"},
    {"intrinsics", "[a-z]*mmintrin\\.h|immintrin\\.h", "src/.*\\.cpp"},
    {"standard",
     "[a-z_0-9]+|cxxabi\\.h|(assert|errno|float|limits|math|stddef|stdint|stdio|stdlib|string|time)\\.h",
     ".*"},
};

bool matches(const std::string & text, const char * pattern) {
    static std::map<const char *, std::regex> compiled;
    return std::regex_match(text, compiled.try_emplace(pattern, pattern).first->second);
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

/// The path of a file below src/ or include/, in the form of `order`.
std::string placeOf(const std::string & path) {
    if (startsWith(path, "include/")) return path.substr(8);
    if (startsWith(path, "src/nbx/")) return path.substr(4);
    if (startsWith(path, "src/")) return "zmt/" + path.substr(4);
    return path;
}

/// The place of one of our headers, as it is written behind #include; empty for a foreign one.
std::string placeOfHeader(const std::string & header) {
    for (const char * top : {"nbx/", "zmt/"})
        if (startsWith(header, top)) return header;
    for (const char * top : {"raster/", "core/", "util/"}) // private ones, seen from src/
        if (startsWith(header, top)) return "zmt/" + header;
    for (const char * top : {"program/", "landscape/", "scene/"})
        if (startsWith(header, top)) return "apps/" + header;
    return {};
}

/// Index in `order` of the longest entry that `place` begins with, or -1 for what lies in no room.
int rankOf(const std::string & place) {
    int rank = -1;
    for (std::size_t i = 0; i < order.size(); ++i)
        if (startsWith(place, std::string(order[i]) + "/") &&
            (rank < 0 || order[i].size() > order[std::size_t(rank)].size()))
            rank = static_cast<int>(i);
    return rank;
}

/// The complaint about `file`, a path below the root, including our header at `place`.
std::optional<std::string> judgeOwn(const std::string & file, const std::string & place) {
    const int user = rankOf(placeOf(file));
    const int used = rankOf(place);
    if (user < 0) return "the file lies in no known room";
    if (used < 0) return "the header lies in no known room";
    const auto isProgram = [](int rank) {
        return std::find(programs.begin(), programs.end(), order[std::size_t(rank)]) != programs.end();
    };
    if (used > user || (used != user && isProgram(used)))
        return std::string(order[user]) + " may not include " + std::string(order[used]);
    return std::nullopt;
}

/// The complaint about `file` including the foreign header `header`.
std::optional<std::string> judgeForeign(const std::string & file, const std::string & header) {
    std::optional<std::string> complaint = "no home is known for this foreign header";
    for (const ForeignLibrary & library : foreignLibraries) {
        if (!matches(header, library.headers)) continue;
        if (matches(file, library.homes)) return std::nullopt;
        complaint = std::string("this is not the home of ") + library.name;
    }
    return complaint;
}

/// The complaint about `file`, a path below `root`, including `header`.
std::optional<std::string> judge(const fs::path & root, const std::string & file,
                                 const std::string & header) {
    if (const std::string place = placeOfHeader(header); !place.empty()) return judgeOwn(file, place);
    const fs::path neighbour = (fs::path(file).parent_path() / header).lexically_normal();
    if (fs::exists(root / neighbour)) return judgeOwn(file, placeOf(neighbour.generic_string()));
    return judgeForeign(file, header);
}

bool isSource(const fs::path & path) {
    return path.extension() == ".h" || path.extension() == ".cpp" || path.extension() == ".inl";
}

std::vector<fs::path> sourcesBelow(const fs::path & root) {
    std::vector<fs::path> found;
    for (const char * top : {"include", "src", "apps"}) {
        if (!fs::exists(root / top)) continue;
        for (const fs::directory_entry & entry : fs::recursive_directory_iterator(root / top))
            if (entry.is_regular_file() && isSource(entry.path())) found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

void checkFile(const fs::path & root, const fs::path & path, std::vector<std::string> & complaints) {
    static const std::regex include("\\s*#\\s*include\\s*[<\"]([^>\"]+)[>\"].*");
    const std::string file = path.lexically_relative(root).generic_string();
    std::ifstream stream(path);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        std::smatch match;
        if (line.find("include") == std::string::npos || !std::regex_match(line, match, include)) continue;
        if (const auto complaint = judge(root, file, match[1]))
            complaints.push_back(file + ":" + std::to_string(number) + ": " + match[1].str() + ": " +
                                 *complaint);
    }
}

/// Lines that use one of OpenGL's names where the library has no home, as "file:number: line".
std::vector<std::string> strayNamesOfOpenGL(const fs::path & root) {
    static const std::regex notCode("//.*|\"[^\"]*\""), name("\\bGL_[A-Z0-9_]+");
    std::vector<std::string> strays;
    for (const fs::path & path : sourcesBelow(root)) {
        const std::string file = path.lexically_relative(root).generic_string();
        if (!judgeForeign(file, "GL/gl.h")) continue;
        std::ifstream stream(path);
        std::string line;
        for (int number = 1; std::getline(stream, line); ++number)
            if (line.find("GL_") != std::string::npos &&
                std::regex_search(std::regex_replace(line, notCode, ""), name))
                strays.push_back(file + ":" + std::to_string(number) + ": " + line);
    }
    return strays;
}

std::vector<std::string> complaintsAbout(const fs::path & root) {
    std::vector<std::string> complaints;
    for (const fs::path & path : sourcesBelow(root))
        checkFile(root, path, complaints);
    return complaints;
}

/// Those that hold more sources, or more headers, public and private ones together, than a room has.
std::vector<std::string> crowdedRooms(const fs::path & root) {
    std::map<std::string, std::size_t> counts;
    for (const fs::path & path : sourcesBelow(root))
        ++counts[placeOf(path.parent_path().lexically_relative(root).generic_string()) + "/*" +
                 path.extension().string()];
    std::vector<std::string> crowded;
    for (const auto & [room, count] : counts)
        if (count > s_roomSize) crowded.push_back(room + ": " + std::to_string(count));
    return crowded;
}

/// A source above that many lines says at its head what it does, how and why.
constexpr std::size_t s_linesWithoutHead = 150;

std::vector<std::string> linesOf(const fs::path & path) {
    std::ifstream stream(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> longSourcesWithoutHead(const fs::path & root) {
    std::vector<std::string> found;
    for (const fs::path & path : sourcesBelow(root)) {
        if (path.extension() != ".cpp") continue;
        const std::vector<std::string> lines = linesOf(path);
        if (lines.size() > s_linesWithoutHead && !startsWith(lines.front(), "//"))
            found.push_back(path.lexically_relative(root).generic_string());
    }
    return found;
}

/// The alternatives of `pattern`, those of its groups among them, each without any.
std::vector<std::string> alternativesOf(const std::string & pattern) {
    std::size_t begin = std::string::npos;
    int depth = 0;
    std::vector<std::size_t> bars;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '(' && depth++ == 0 && begin == std::string::npos) begin = i;
        if (pattern[i] == ')') --depth;
        if (pattern[i] == '|' && depth == 0) bars.push_back(i);
    }
    std::vector<std::string> found;
    const auto append = [&found](const std::vector<std::string> & others) {
        found.insert(found.end(), others.begin(), others.end());
    };
    if (!bars.empty()) {
        append(alternativesOf(pattern.substr(0, bars.front())));
        append(alternativesOf(pattern.substr(bars.front() + 1)));
        return found;
    }
    if (begin == std::string::npos) return {pattern};
    const std::size_t end = pattern.find(')', begin); // groups hold no groups
    for (const std::string & inner : alternativesOf(pattern.substr(begin + 1, end - begin - 1)))
        append(alternativesOf(pattern.substr(0, begin) + inner + pattern.substr(end + 1)));
    return found;
}

/// The patterns by which presets choose test sources.
std::vector<std::string> testPatternsOfPresets(const fs::path & root) {
    static const std::regex entry(".*\"ZMT_TESTS_MATCHING\": \"([^\"]+)\".*");
    std::vector<std::string> patterns;
    for (const std::string & line : linesOf(root / "CMakePresets.json"))
        if (std::smatch match; std::regex_match(line, match, entry)) patterns.push_back(match[1]);
    return patterns;
}

bool matchesATest(const fs::path & root, const std::string & pattern) {
    const std::regex compiled(pattern);
    for (const fs::directory_entry & entry : fs::recursive_directory_iterator(root / "tests"))
        if (entry.path().filename().string().ends_with("_test.cpp") &&
            std::regex_search(entry.path().generic_string(), compiled))
            return true;
    return false;
}

std::string joined(const std::vector<std::string> & lines) {
    std::string text;
    for (const std::string & line : lines)
        text += line + "\n";
    return text;
}

/// A small tree of files that goes with its object.
class TemporaryTree {
public:
    TemporaryTree() : root_(fs::temp_directory_path() / ("zmt-walls-" + std::to_string(getpid()))) {
        fs::create_directories(root_);
    }
    ~TemporaryTree() { fs::remove_all(root_); }

    void write(const std::string & file, const std::string & text) const {
        fs::create_directories((root_ / file).parent_path());
        std::ofstream(root_ / file) << text;
    }
    const fs::path & root() const { return root_; }

private:
    fs::path root_;
};

struct Case {
    const char * file;
    const char * header;
};

} // namespace

TEST(Walls, EveryIncludeOfTheTreeIsAllowed) {
    const fs::path root = ZMT_SOURCE_ROOT;
    EXPECT_FALSE(sourcesBelow(root).empty());
    const std::vector<std::string> complaints = complaintsAbout(root);
    EXPECT_TRUE(complaints.empty()) << joined(complaints);
}

TEST(Walls, NamesOfOpenGLStayInItsFiles) {
    EXPECT_EQ(joined(strayNamesOfOpenGL(ZMT_SOURCE_ROOT)), "");
    const TemporaryTree tree;
    tree.write("src/core/misc/a.cpp", "// GL_LINE\nauto a = \"GL_ARB_x\";\nauto b = GL_LINE;\n");
    tree.write("src/core/misc/agl.cpp", "auto b = GL_LINE;\n");
    EXPECT_EQ(joined(strayNamesOfOpenGL(tree.root())), "src/core/misc/a.cpp:3: auto b = GL_LINE;\n");
}

TEST(Walls, NoRoomIsCrowded) {
    EXPECT_EQ(joined(crowdedRooms(ZMT_SOURCE_ROOT)), "");
    const TemporaryTree tree;
    for (std::size_t i = 0; i <= s_roomSize; ++i)
        tree.write("src/nbx/math/" + std::to_string(i) + ".cpp", "");
    for (std::size_t i = 0; i <= s_roomSize; ++i)
        tree.write((i % 2 ? "src/core/misc/" : "include/zmt/core/misc/") + std::to_string(i) + ".h", "");
    EXPECT_EQ(joined(crowdedRooms(tree.root())), "nbx/math/*.cpp: 26\nzmt/core/misc/*.h: 26\n");
}

TEST(Walls, LongSourcesBeginWithWhatTheyDo) {
    EXPECT_EQ(joined(longSourcesWithoutHead(ZMT_SOURCE_ROOT)), "");
    const TemporaryTree tree;
    std::string lines;
    for (std::size_t i = 0; i < s_linesWithoutHead; ++i)
        lines += "\n";
    tree.write("src/nbx/math/short.cpp", lines);
    tree.write("src/nbx/math/long.cpp", lines + "\n");
    tree.write("src/nbx/math/told.cpp", "// Told.\n" + lines);
    EXPECT_EQ(joined(longSourcesWithoutHead(tree.root())), "src/nbx/math/long.cpp\n");
}

TEST(Walls, PresetsChooseTestsThatExist) {
    EXPECT_EQ(alternativesOf("/a/(b|c)d|e(f|g)(h|i)"),
              (std::vector<std::string>{"/a/bd", "/a/cd", "efh", "efi", "egh", "egi"}));
    const std::vector<std::string> patterns = testPatternsOfPresets(ZMT_SOURCE_ROOT);
    EXPECT_FALSE(patterns.empty());
    for (const std::string & pattern : patterns)
        for (const std::string & alternative : alternativesOf(pattern))
            EXPECT_TRUE(matchesATest(ZMT_SOURCE_ROOT, alternative)) << alternative;
}

TEST(Walls, FileBelongsToTheInnermostRoom) {
    EXPECT_EQ(order[std::size_t(rankOf("zmt/core/terrain/geometry/grid/model/tile.h"))],
              "zmt/core/terrain/geometry/grid/model");
    EXPECT_EQ(order[std::size_t(rankOf("zmt/core/terrain/geometry/grid/painter.h"))],
              "zmt/core/terrain/geometry/grid");
    EXPECT_EQ(rankOf("zmt/core/terrain/geometry/gridpatch.h"), -1);
    EXPECT_EQ(rankOf("nbx/scene/shape.h"), -1);
}

TEST(Walls, AllowedIncludesPass) {
    const std::vector<Case> cases = {
        {"src/nbx/object/id.cpp", "nbx/object/id.h"},
        {"src/nbx/io/modelreader.cpp", "nbx/object/id.h"},
        {"include/nbx/gl/texture/texturegl.h", "GL/glew.h"},
        {"src/core/terrain/geometry/view/terrainpaintergl.cpp", "GL/glew.h"},
        {"include/zmt/core/misc/displaylistgl.h", "GL/gl.h"},
        {"src/raster/gdal/gdalraster.cpp", "gdal_priv.h"},
        {"src/raster/gdal/gdalraster.h", "ogr_spatialref.h"},
        {"src/nbx/image/jpegreader.cpp", "jpeglib.h"},
        {"src/nbx/data/zlibfilter.cpp", "libdeflate.h"},
        {"src/nbx/math/matrix.cpp", "Eigen/Dense"},
        {"src/core/misc/thread.cpp", "pthread.h"},
        {"src/core/file/filecalls.cpp", "liburing.h"},
        {"src/util/hachures.cpp", "zmt/core/terrain/geometry/regular/griddata.h"},
        {"src/core/terrain/geometry/hybrid/breaklines.cpp", "core/terrain/geometry/regular/griddomain.h"},
        {"src/core/terrain/geometry/grid/painter.cpp", "zmt/core/terrain/texture/streaming/tile.h"},
        {"src/core/terrain/texture/streaming/tile.cpp", "zmt/core/terrain/geometry/grid/model/tile.h"},
        {"src/nbx/gl/effect/multitexturinggl.cpp", "nbx/gl/texture/texturegl.h"},
        {"apps/zmt/main.cpp", "CLI/CLI.hpp"},
        {"apps/zmt/main.cpp", "zmt/util/hachures.h"},
        {"apps/zmt/main.cpp", "landscape/reports.h"},
        {"apps/zmt_viewer/main.cpp", "landscape/reports.h"},
        {"apps/landscape/reports.cpp", "program/stage.h"},
        {"include/zmt/raster/rasterdata.h", "vector"},
    };
    for (const Case & c : cases)
        EXPECT_EQ(judge("/nowhere", c.file, c.header).value_or(""), "") << c.file << " <- " << c.header;
}

TEST(Walls, WrongIncludesAreFound) {
    const std::vector<Case> cases = {
        {"src/nbx/object/id.cpp", "nbx/math/bounds.h"},
        {"include/nbx/engine/engine.h", "nbx/gl/context/enginegl.h"},
        {"src/nbx/scene/shape/shape.cpp", "nbx/engine/engine.h"},
        {"src/nbx/io/modelreader.cpp", "zmt/raster/rasterdata.h"},
        {"src/raster/rasterdata.cpp", "zmt/core/misc/thread.h"},
        {"src/core/misc/thread.cpp", "zmt/util/profiler.h"},
        {"src/core/misc/thread.cpp", "nbx/unknown/thing.h"},
        {"src/core/terrain/geometry/regular/gridpatch.cpp", "zmt/core/terrain/geometry/hybrid/hybriddata.h"},
        {"src/core/terrain/geometry/regular/gridpatch.cpp", "core/terrain/geometry/hybrid/microindextable.h"},
        {"src/core/terrain/geometry/grid/model/tile.cpp", "zmt/core/terrain/geometry/grid/painter.h"},
        {"src/core/terrain/texture/terraintexture.cpp", "zmt/core/terrain/geometry/view/terrain.h"},
        {"src/core/terrain/geometry/terrain.cpp", "zmt/core/misc/thread.h"},
        {"src/raster/rasterdata.cpp", "zmt/raster/gdal/rasterfile.h"},
        {"src/nbx/gl/context/namegl.cpp", "nbx/gl/texture/texturegl.h"},
        {"src/core/terrain/geometry/view/terrain.cpp", "GL/gl.h"},
        {"include/nbx/scene/shape/shape.h", "GL/glew.h"},
        {"src/nbx/engine/engine.cpp", "EGL/egl.h"},
        {"src/raster/rasterdata.cpp", "gdal.h"},
        {"include/zmt/raster/gdal/gdalraster.h", "gdal_priv.h"},
        {"src/core/misc/codec.cpp", "cpl_string.h"},
        {"src/core/misc/codec.cpp", "jpeglib.h"},
        {"src/nbx/data/file.cpp", "png.h"},
        {"src/nbx/data/file.cpp", "liburing.h"},
        {"src/nbx/image/pngreader.cpp", "zlib.h"},
        {"include/nbx/data/zlibfilter.h", "libdeflate.h"},
        {"src/nbx/math/matrix.h", "Eigen/Dense"},
        {"src/core/misc/thread.cpp", "Eigen/Core"},
        {"src/util/inireader.cpp", "nlohmann/json.hpp"},
        {"src/util/inireader.cpp", "CLI/CLI.hpp"},
        {"include/zmt/core/misc/thread.h", "pthread.h"},
        {"src/core/misc/thread.cpp", "boost/thread.hpp"},
        {"src/core/misc/thread.cpp", "gtest/gtest.h"},
        {"apps/program/stage.cpp", "landscape/reports.h"},
    };
    for (const Case & c : cases)
        EXPECT_TRUE(judge("/nowhere", c.file, c.header).has_value()) << c.file << " <- " << c.header;
}

TEST(Walls, WrongIncludeInATreeIsReportedWithFileAndLine) {
    const TemporaryTree tree;
    tree.write("include/nbx/math/bounds.h", "#include <vector>\n");
    tree.write("src/nbx/math/bounds.cpp", "#include \"nbx/math/bounds.h\"\n\n  #  include <GL/gl.h>\n");
    EXPECT_EQ(joined(complaintsAbout(tree.root())),
              "src/nbx/math/bounds.cpp:3: GL/gl.h: this is not the home of OpenGL\n");
}

TEST(Walls, ProgramsDoNotKnowEachOther) {
    const TemporaryTree tree;
    for (const char * room : {"landscape", "zmt", "zmt_viewer"})
        tree.write(std::string("apps/") + room + "/a.h", "");
    tree.write("apps/zmt/a.cpp", "#include \"a.h\"\n#include \"../zmt_viewer/a.h\"\n");
    tree.write("apps/zmt_viewer/a.cpp", "#include \"../landscape/a.h\"\n#include \"../zmt/a.h\"\n");
    tree.write("apps/landscape/a.cpp", "#include \"../zmt/a.h\"\n");
    EXPECT_EQ(joined(complaintsAbout(tree.root())),
              "apps/landscape/a.cpp:1: ../zmt/a.h: apps/landscape may not include apps/zmt\n"
              "apps/zmt/a.cpp:2: ../zmt_viewer/a.h: apps/zmt may not include apps/zmt_viewer\n"
              "apps/zmt_viewer/a.cpp:2: ../zmt/a.h: apps/zmt_viewer may not include apps/zmt\n");
}

TEST(Walls, NeighbouringHeaderIsJudgedByItsPlace) {
    const TemporaryTree tree;
    tree.write("src/core/misc/impl.h", "");
    tree.write("src/core/misc/a.cpp", "#include \"impl.h\"\n");
    tree.write("src/nbx/math/a.cpp", "#include \"../../core/misc/impl.h\"\n");
    EXPECT_EQ(joined(complaintsAbout(tree.root())),
              "src/nbx/math/a.cpp:1: ../../core/misc/impl.h: nbx/math may not include zmt/core/misc\n");
}
