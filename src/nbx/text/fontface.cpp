// HarfBuzz sets the text, with its own reading of the font's tables, in units of the font: no rounding to
// pixels, so that a text has the same shape at each size. FreeType gives the outlines of the glyphs, without
// hinting, of which distance fields are made; see `textshapepaintergl.cpp` for why fields. Its own ones take
// 10 ms a glyph, several times as long. Both read one copy of the file.
//
// A font is found by the name of its file. That is all that is needed where a font is chosen by a person who
// sees the result, depends on no configuration of the machine, and gives the same picture on all of them.

#include <nbx/text/fontface.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>

#include <freetype/freetype.h>
#include <freetype/ftoutln.h>
#include <hb-ot.h>
#include <hb.h>

#include "distancefield.h"
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

namespace NBX {

NBX_CLASS_IMPL(FontFace, SharedObj)

namespace {

namespace fs = std::filesystem;

constexpr unsigned s_largestGlyph = 8 * FontFace::fieldSize;

struct HarfBuzzDeleter {
    void operator()(hb_blob_t * blob) const { hb_blob_destroy(blob); }
    void operator()(hb_face_t * face) const { hb_face_destroy(face); }
    void operator()(hb_font_t * font) const { hb_font_destroy(font); }
    void operator()(hb_buffer_t * buffer) const { hb_buffer_destroy(buffer); }
};
template <class T> using HarfBuzz = std::unique_ptr<T, HarfBuzzDeleter>;

struct FreeTypeDeleter {
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
    void operator()(FT_Face face) const { FT_Done_Face(face); }
};
template <class T> using FreeType = std::unique_ptr<std::remove_pointer_t<T>, FreeTypeDeleter>;

/// Null when there is no memory.
FreeType<FT_Library> newLibrary() {
    FT_Library library = nullptr;
    return FreeType<FT_Library>(FT_Init_FreeType(&library) == 0 ? library : nullptr);
}

/// Null where the file has no font that can be drawn at any size.
FreeType<FT_Face> newFace(FT_Library library, hb_blob_t * file) {
    unsigned size = 0;
    const auto * data = reinterpret_cast<const FT_Byte *>(hb_blob_get_data(file, &size));
    FT_Face opened = nullptr;
    if (!library || FT_New_Memory_Face(library, data, FT_Long(size), 0, &opened) != 0) return nullptr;
    FreeType<FT_Face> face(opened);
    const bool isUsable = FT_IS_SCALABLE(face.get()) && face->units_per_EM > 0 &&
                          FT_Set_Pixel_Sizes(face.get(), FontFace::fieldSize, FontFace::fieldSize) == 0;
    return isUsable ? std::move(face) : nullptr;
}

/// Letters and digits alone, small.
std::string plain(const std::string & name) {
    std::string result;
    for (const char c : name)
        if (c != ' ' && c != '-' && c != '_')
            result.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    return result;
}

bool isFontFile(const fs::path & path) {
    const std::string suffix = plain(path.extension().string());
    return suffix == ".ttf" || suffix == ".otf" || suffix == ".ttc";
}

/// The first of the paths below `folder` whose file has one of two names.
std::string findBelow(const fs::path & folder, const std::string & name, const std::string & otherName) {
    std::string found;
    std::error_code error;
    auto entry =
        fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        const fs::path & path = entry->path();
        if (!isFontFile(path)) continue;
        const std::string stem = plain(path.stem().string());
        if ((stem == name || stem == otherName) && (found.empty() || path.string() < found))
            found = path.string();
    }
    return found;
}

} // namespace

struct FontFace::Impl {
    std::string path;
    HarfBuzz<hb_blob_t> file;
    HarfBuzz<hb_font_t> font;
    double unit = 1.0; ///< of the font, in em
    double ascent = 0.0, descent = 0.0, lineHeight = 0.0;
    FreeType<FT_Library> library;
    FreeType<FT_Face> face;
    std::mutex faceMutex; ///< guards `face`
};

FontFace::FontFace(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

FontFace::~FontFace() = default;

SO<FontFace> FontFace::fromFile(const std::string & path) {
    auto impl = std::make_unique<Impl>();
    impl->path = path;
    const auto failed = [&path](const wchar_t * why) -> SO<FontFace> {
        NBX_FAILURE(L"cannot read the font \"" << StringUtils::Utf8String2WString(path) << L"\": " << why);
        return nullptr;
    };
    std::error_code error;
    if (fs::is_regular_file(path, error)) impl->file.reset(hb_blob_create_from_file_or_fail(path.c_str()));
    if (!impl->file) return failed(L"there is no such file, or it may not be read");
    impl->library = newLibrary();
    impl->face = newFace(impl->library.get(), impl->file.get());
    const HarfBuzz<hb_face_t> face(hb_face_create(impl->file.get(), 0));
    if (!impl->face || hb_face_get_glyph_count(face.get()) == 0) return failed(L"it is no scalable font");
    impl->font.reset(hb_font_create(face.get()));
    hb_font_make_immutable(impl->font.get());
    impl->unit = 1.0 / std::max(1U, hb_face_get_upem(face.get()));
    hb_font_extents_t extents = {};
    hb_font_get_h_extents(impl->font.get(), &extents);
    impl->ascent = extents.ascender * impl->unit;
    impl->descent = -extents.descender * impl->unit;
    impl->lineHeight = impl->ascent + impl->descent + extents.line_gap * impl->unit;
    return SO<FontFace>(new FontFace(std::move(impl)));
}

const std::vector<std::string> & FontFace::usualNames() {
    static const std::vector<std::string> names = {"DejaVu Sans", "Noto Sans", "Liberation Sans",
                                                   "Free Sans"};
    return names;
}

std::vector<std::string> FontFace::usualFolders() {
    std::vector<std::string> folders;
    if (const char * home = std::getenv("HOME"))
        folders = {std::string(home) + "/.local/share/fonts", std::string(home) + "/.fonts"};
    folders.insert(folders.end(), {"/usr/local/share/fonts", "/usr/share/fonts"});
    return folders;
}

std::string FontFace::fileOf(const std::string & name, const std::vector<std::string> & folders) {
    const std::string wanted = plain(name);
    if (wanted.empty()) return {};
    for (const std::string & folder : folders)
        if (std::string path = findBelow(folder, wanted, wanted + "regular"); !path.empty()) return path;
    return {};
}

namespace {

/// Null, after a report, when there is none.
SO<FontFace> findFont(const std::string & name) {
    if (name.find('/') != std::string::npos) return FontFace::fromFile(name);
    const std::vector<std::string> folders = FontFace::usualFolders();
    const std::vector<std::string> names =
        name.empty() ? FontFace::usualNames() : std::vector<std::string>{name};
    for (const std::string & wanted : names)
        if (const std::string path = FontFace::fileOf(wanted, folders); !path.empty())
            return FontFace::fromFile(path);
    if (name.empty())
        NBX_FAILURE(L"there is no font for text; install one, such as Debian's fonts-dejavu-core");
    else
        NBX_FAILURE(L"there is no font \"" << StringUtils::Utf8String2WString(name)
                                           << L"\"; give the name of a font's file below /usr/share/fonts, "
                                              L"without its suffix, or a path");
    return nullptr;
}

} // namespace

SO<FontFace> FontFace::named(const std::wstring & name) {
    static std::mutex mutex;
    static auto * fonts = new std::map<std::wstring, SO<FontFace>>;
    const std::lock_guard<std::mutex> lock(mutex);
    const auto [entry, isNew] = fonts->try_emplace(name);
    if (isNew) entry->second = findFont(StringUtils::WString2Utf8String(name));
    return entry->second;
}

const std::string & FontFace::path() const {
    return impl_->path;
}

double FontFace::ascent() const {
    return impl_->ascent;
}

double FontFace::descent() const {
    return impl_->descent;
}

double FontFace::lineHeight() const {
    return impl_->lineHeight;
}

double FontFace::shape(std::u32string_view line, std::size_t begin, std::size_t end, bool rightToLeft,
                       unsigned script, double x, std::vector<Glyph> & glyphs) const {
    static_assert(sizeof(char32_t) == sizeof(std::uint32_t));
    const HarfBuzz<hb_buffer_t> buffer(hb_buffer_create());
    hb_buffer_add_utf32(buffer.get(), reinterpret_cast<const std::uint32_t *>(line.data()), int(line.size()),
                        unsigned(begin), int(end - begin));
    hb_buffer_set_direction(buffer.get(), rightToLeft ? HB_DIRECTION_RTL : HB_DIRECTION_LTR);
    hb_buffer_set_script(buffer.get(), hb_script_t(script));
    // Not that of the user's environment: a text looks the same everywhere.
    hb_buffer_set_language(buffer.get(), hb_language_from_string("und", -1));
    hb_shape(impl_->font.get(), buffer.get(), nullptr, 0);
    unsigned count = 0;
    const hb_glyph_info_t * infos = hb_buffer_get_glyph_infos(buffer.get(), &count);
    const hb_glyph_position_t * positions = hb_buffer_get_glyph_positions(buffer.get(), &count);
    for (unsigned i = 0; i < count; ++i) {
        glyphs.push_back({infos[i].codepoint, x + positions[i].x_offset * impl_->unit,
                          positions[i].y_offset * impl_->unit});
        x += positions[i].x_advance * impl_->unit;
    }
    return x;
}

Bounds FontFace::inkOf(unsigned glyph) const {
    hb_glyph_extents_t ink = {};
    if (!hb_font_get_glyph_extents(impl_->font.get(), glyph, &ink) || ink.width == 0 || ink.height == 0)
        return Bounds();
    const double left = ink.x_bearing * impl_->unit, top = ink.y_bearing * impl_->unit;
    return Bounds({left, top, 0.0}, {left + ink.width * impl_->unit, top + ink.height * impl_->unit, 0.0});
}

namespace {

/// The straight pieces of an outline, in texels.
class Flattening {
public:
    /// Empty for an outline that is damaged, or has more pieces than any letter.
    static std::vector<OutlinePiece> of(FT_Outline & outline) {
        FT_Outline_Funcs functions = {};
        functions.move_to = [](const FT_Vector * to, void * self) { return taken(self).move(*to); };
        functions.line_to = [](const FT_Vector * to, void * self) {
            return taken(self).append(pointOf(*to));
        };
        functions.conic_to = [](const FT_Vector * a, const FT_Vector * to, void * self) {
            // The cubic that is this parabola.
            const Point from = taken(self).at_, control = pointOf(*a), end = pointOf(*to);
            return taken(self).curve(mixed(from, control, 2.0 / 3.0), mixed(end, control, 2.0 / 3.0), end);
        };
        functions.cubic_to = [](const FT_Vector * a, const FT_Vector * b, const FT_Vector * to, void * self) {
            return taken(self).curve(pointOf(*a), pointOf(*b), pointOf(*to));
        };
        Flattening flattening;
        if (FT_Outline_Decompose(&outline, &functions, &flattening) != 0) return {};
        flattening.append(flattening.start_);
        return std::move(flattening.pieces_);
    }

private:
    struct Point {
        double x, y;
    };
    static constexpr std::size_t s_mostPieces = 20000;
    static constexpr double s_deviation = 0.02; ///< of pieces from a curve, in texels

    static Flattening & taken(void * self) { return *static_cast<Flattening *>(self); }
    static Point pointOf(const FT_Vector & v) { return {double(v.x) / 64.0, double(v.y) / 64.0}; }
    static Point mixed(const Point & a, const Point & b, double t) {
        return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t};
    }
    static double bend(const Point & a, const Point & b, const Point & c) {
        return std::hypot(a.x - 2.0 * b.x + c.x, a.y - 2.0 * b.y + c.y);
    }

    /// Like the others not 0 to end it all.
    int append(const Point & to) {
        if (to.x != at_.x || to.y != at_.y) pieces_.push_back({at_.x, at_.y, to.x, to.y});
        at_ = to;
        return pieces_.size() > s_mostPieces;
    }
    int move(const FT_Vector & to) {
        append(start_);
        start_ = at_ = pointOf(to);
        return 0;
    }
    int curve(const Point & a, const Point & b, const Point & to) {
        const Point from = at_;
        // So many pieces deviate by 6 bend / (8 count^2) at most.
        const double most = std::max(bend(from, a, b), bend(a, b, to)) * 6.0 / 8.0;
        const int count = std::clamp(int(std::ceil(std::sqrt(most / s_deviation))), 1, 64);
        for (int i = 1; i < count; ++i) {
            const double t = double(i) / count;
            const Point p = mixed(from, a, t), q = mixed(a, b, t), r = mixed(b, to, t);
            append(mixed(mixed(p, q, t), mixed(q, r, t), t));
        }
        return append(to);
    }

    std::vector<OutlinePiece> pieces_;
    Point start_ = {0.0, 0.0}, at_ = {0.0, 0.0};
};

} // namespace

FontFace::DistanceField FontFace::distanceField(unsigned glyph) const {
    const std::lock_guard<std::mutex> lock(impl_->faceMutex);
    FT_Face face = impl_->face.get();
    if (FT_Load_Glyph(face, glyph, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0) return {};
    FT_GlyphSlot slot = face->glyph;
    if (slot->format != FT_GLYPH_FORMAT_OUTLINE) return {};
    FT_BBox box = {};
    FT_Outline_Get_CBox(&slot->outline, &box);
    const auto limit = FT_Pos(s_largestGlyph) * 64;
    if (box.xMin < -limit || box.yMin < -limit || box.xMax > limit || box.yMax > limit) return {};
    return distanceFieldOf(Flattening::of(slot->outline));
}

} // namespace NBX
