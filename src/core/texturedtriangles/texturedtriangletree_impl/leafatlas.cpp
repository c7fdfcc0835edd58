// Whole source textures are not drawn by the card but filtered here: its filters differ from driver to
// driver, and are no box filters, while these bytes are the same everywhere, without a picture that is read
// back for each leaf. Patches of triangles, whose borders are triangles as well, are drawn by the card.
//
// Neighbouring leaves need more textures than may be decoded at once, and others in another order, so that
// each leaf by itself would decode nearly all of its textures anew: hence several leaves at a time.

#include "leafatlas.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/atlas/textureatlascreator.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include "atlasfill.h"
#include "atlasplace.h"
#include "textureatlasgenerator.h"

namespace ZMT::CORE {

namespace {

using Infos = NBX::Iterator<TextureSizeCalculator::TextureInfo>;
using Places = NBX::Iterator<NBX::Area>;

NBX::SO<Places> placesOf(const Infos & infos, int atlasSize) {
    using Sizes = NBX::NonPersistentArray<std::pair<unsigned, unsigned>>;
    const NBX::SO<Sizes> sizes(new Sizes());
    for (const TextureSizeCalculator::TextureInfo & info : infos)
        sizes->append({unsigned(info.width), unsigned(info.height)});
    return NBX::TextureAtlasCreator::createSubImagePlacement(sizes.get(), unsigned(atlasSize),
                                                             unsigned(atlasSize));
}

void moveToAtlas(const NBX::Iterator<TriangleContainer::TriangleID> & triangles, const AtlasPlace & place,
                 TriangleContainer & container) {
    for (const TriangleContainer::TriangleID & id : triangles) {
        std::array<AtlasPlace::Point, 3> texCoords = container.triangle(id).texCoords;
        for (AtlasPlace::Point & coordinates : texCoords)
            coordinates = place.atlasCoordinates(coordinates);
        container.setTexCoords(id, texCoords);
    }
}

/// A source texture's image that has its pixels as long as `SourceTextures` keeps them, and asks for them
/// again while it goes to the card. Borrows `all`.
class PassingImage : public NBX::Image {
    NBX_TEMPLATE_CLASS(PassingImage, NBX::Image)
public:
    /// `pixels` are those that `all` has now.
    PassingImage(SourceTextures & all, unsigned number, const NBX::Image & pixels)
        : Image(pixels.layerSequence(), pixels.dataType()), all_(all), number_(number),
          width_(pixels.width()), height_(pixels.height()), alignment_(pixels.alignment()),
          padding_(pixels.padding()) {}

    int width() const override { return width_; }
    int height() const override { return height_; }
    int alignment() const override { return alignment_; }
    int padding() const override { return padding_; }
    bool isWritable() const override { return false; }
    using Image::lineComponents;
    const void * lineComponents(int y) const override {
        if (substitute_) return substitute_->lineComponents(y);
        const NBX::SO<NBX::Image> pixels = all_.image(number_);
        if (pixels && isAsBefore(*pixels)) return pixels->lineComponents(y);
        substitute_ = new NBX::MemoryImage(width_, height_, layerSequence(), dataType(), alignment_);
        substitute_->copy(pixels ? pixels.get() : SourceTextures::standIn().get());
        return substitute_->lineComponents(y);
    }

private:
    bool isAsBefore(const NBX::Image & pixels) const {
        return pixels.width() == width_ && pixels.height() == height_ && pixels.alignment() == alignment_ &&
               pixels.padding() == padding_ && pixels.layerSequence() == layerSequence() &&
               pixels.dataType() == dataType();
    }

    SourceTextures & all_;
    const unsigned number_;
    const int width_, height_, alignment_, padding_;
    mutable NBX::SO<NBX::Image> substitute_; ///< where the file has become another picture meanwhile
};

/// The source textures of some triangles, as the card takes them, in the order in which they are met.
class UsedTextures {
public:
    explicit UsedTextures(SourceTextures & all) : all_(all) {}

    /// -1 for a mesh without a texture.
    int numberOf(unsigned mesh) {
        const int number = all_.numberOf(mesh);
        if (number < 0) return -1;
        const auto [entry, isNew] = known_.try_emplace(number, int(textures_->size()));
        if (isNew) textures_->append(newTexture(unsigned(number)));
        return entry->second;
    }
    const TextureAtlasGenerator::Textures * textures() const { return textures_.get(); }

private:
    NBX::SO<NBX::ImageTexture2DGL> newTexture(unsigned number) {
        const NBX::SO<NBX::Image> pixels = all_.image(number);
        const NBX::SO<NBX::Image> image = pixels ? new PassingImage(all_, number, *pixels) : nullptr;
        return new NBX::ImageTexture2DGL(image ? image : SourceTextures::standIn(),
                                         all_.wrapper(number).getWrapS(), all_.wrapper(number).getWrapT());
    }

    SourceTextures & all_;
    std::map<int, int> known_;
    NBX::SO<NBX::Array<NBX::SO<NBX::ImageTexture2DGL>>> textures_{
        new NBX::Array<NBX::SO<NBX::ImageTexture2DGL>>()};
};

/// White where patches are drawn with their borders, black elsewhere: as they are drawn, without their
/// textures.
NBX::SO<NBX::Image> maskOf(const TextureAtlasGenerator::Vectors & texCoords,
                           const TextureAtlasGenerator::Vectors & atlasCoords, NBX::GLCanvas & canvas) {
    const NBX::Color background = canvas.getBackgroundColor();
    canvas.setBackgroundColor(NBX::Color::black);
    const NBX::SO<NBX::Image> mask = TextureAtlasGenerator::renderTextureAtlas(
        nullptr, &texCoords, nullptr, nullptr, &atlasCoords, TextureSizeCalculator::BORDER, &canvas);
    canvas.setBackgroundColor(background);
    return mask;
}

NBX::SO<NBX::Image> drawPatches(const AtlasTreeGenerator::Triangles & triangles,
                                TriangleContainer & container, SourceTextures & textures,
                                const AtlasResolution & resolution, NBX::GLCanvas * canvas) {
    using Vectors = NBX::Array<TriangleContainer::Vector>;
    const NBX::SO<Vectors> vertices(new Vectors()), texCoords(new Vectors());
    const NBX::SO<NBX::Array<int>> numbers(new NBX::Array<int>());
    UsedTextures used(textures);
    for (const TriangleContainer::TriangleID & id : triangles) {
        const TriangleContainer::Triangle triangle = container.triangle(id);
        for (unsigned k = 0; k < 3; ++k) {
            vertices->append(triangle.vertices[k]);
            texCoords->append(triangle.texCoords[k]);
        }
        numbers->append(used.numberOf(unsigned(id.mesh)));
    }
    const TextureAtlasGenerator::TextureMapping mapping = TextureAtlasGenerator::create(
        vertices.get(), texCoords.get(), numbers.get(), used.textures(),
        TextureSizeCalculator::unitsPerTexel(resolution.distance, resolution.fieldOfView,
                                             resolution.screenSize, resolution.quality),
        TextureSizeCalculator::BORDER, resolution.atlasSize, canvas);
    if (!mapping.image || !mapping.texCoords) return nullptr;
    const NBX::SO<NBX::Image> mask = maskOf(*texCoords, *mapping.texCoords, *canvas);
    if (mask) fillUnusedTexels(UsedTexels(*mask), *mapping.image);
    for (unsigned i = 0; i < triangles.size(); ++i) {
        std::array<TriangleContainer::Vector, 3> inAtlas;
        for (unsigned k = 0; k < 3; ++k) {
            const TriangleContainer::Vector & coordinates = mapping.texCoords->get(3 * i + k);
            inAtlas[k] = {coordinates.x, coordinates.y, 0.0};
        }
        container.setTexCoords(triangles.get(i), inAtlas);
    }
    return mapping.image;
}

/// That triangles cover in an atlas.
double texelsOf(const AtlasTreeGenerator::Triangles & triangles, const TriangleContainer & container,
                int atlasSize) {
    double area = 0.0;
    for (const TriangleContainer::TriangleID & id : triangles) {
        const auto & t = container.triangle(id).texCoords;
        area += (t[1] - t[0]).cross(t[2] - t[0]).length() / 2.0;
    }
    return area * atlasSize * atlasSize;
}

} // namespace

NBX::SO<NBX::Image> drawLeafAtlas(const NBX::SO<AtlasTreeGenerator::Triangles> & triangles,
                                  const NBX::SO<TriangleContainer> & container, SourceTextures & textures,
                                  const AtlasResolution & resolution, NBX::GLCanvas * canvas,
                                  double * usedTexels) {
    return LeafAtlases({triangles}, container, textures, resolution, canvas, [] { return true; })
        .next(usedTexels);
}

struct LeafAtlases::Part {
    int texture; ///< -1 for none
    AtlasPlace place;
    NBX::SO<NBX::Image> atlas;
};

LeafAtlases::LeafAtlases(std::vector<NBX::SO<Triangles>> leaves, const NBX::SO<TriangleContainer> & container,
                         SourceTextures & textures, const AtlasResolution & resolution,
                         NBX::GLCanvas * canvas, std::function<bool()> goOn, std::size_t mostBytes)
    : leaves_(std::move(leaves)), container_(container), textures_(textures), resolution_(resolution),
      canvas_(canvas), goOn_(std::move(goOn)),
      mostAtOnce_(std::max<std::size_t>(
          1, mostBytes / (4 * std::size_t(resolution.atlasSize) * std::size_t(resolution.atlasSize)))) {}

LeafAtlases::~LeafAtlases() = default;

NBX::SO<NBX::Image> LeafAtlases::next(double * usedTexels) {
    if (usedTexels) *usedTexels = 0.0;
    if (next_ >= leaves_.size()) return nullptr;
    if (TexturedTriangleTree::uniqueTextureParameterizationEnforced()) {
        const Triangles & triangles = *leaves_[next_++];
        const NBX::SO<NBX::Image> atlas =
            drawPatches(triangles, *container_, textures_, resolution_, canvas_);
        if (usedTexels && atlas) *usedTexels = texelsOf(triangles, *container_, resolution_.atlasSize);
        return atlas;
    }
    if (drawn_.empty()) drawGroup();
    const Plan plan = std::move(drawn_.front());
    drawn_.pop_front();
    ++next_;
    UsedTexels used(resolution_.atlasSize, resolution_.atlasSize);
    for (unsigned i = 0; plan.areas && i < plan.infos->size(); ++i) {
        const TextureSizeCalculator::TextureInfo info = plan.infos->get(i);
        const AtlasPlace place(info.bounds, plan.areas->get(i), resolution_.atlasSize);
        moveToAtlas(*info.triangles, place, *container_);
        used.add(place.texels());
        if (usedTexels) *usedTexels += double(plan.areas->get(i).getWidth()) * plan.areas->get(i).getHeight();
    }
    if (plan.atlas) fillUnusedTexels(used, *plan.atlas);
    return plan.atlas;
}

auto LeafAtlases::planOf(const NBX::SO<Triangles> & triangles) const -> Plan {
    const auto & [distance, fieldOfView, screenSize, quality, atlasSize] = resolution_;
    const double unitsPerTexel =
        TextureSizeCalculator::unitsPerTexel(distance, fieldOfView, screenSize, quality);
    if (triangles->size() > 1 &&
        !AtlasTreeGenerator::areaFits(*triangles, *container_, unitsPerTexel, atlasSize))
        return {};
    Plan plan;
    plan.infos = TextureSizeCalculator::computeTextureInformation(
        triangles, container_, distance, fieldOfView, screenSize, quality, atlasSize);
    plan.areas = placesOf(*plan.infos, atlasSize);
    if (plan.areas) plan.atlas = new NBX::MemoryImage(atlasSize, atlasSize, NBX::LS_RGBA);
    return plan;
}

void LeafAtlases::drawGroup() {
    std::vector<Part> parts;
    for (std::size_t i = next_; i < leaves_.size() && drawn_.size() < mostAtOnce_; ++i) {
        const Plan & plan = drawn_.emplace_back(planOf(leaves_[i]));
        for (unsigned k = 0; plan.areas && k < plan.infos->size(); ++k) {
            const TextureSizeCalculator::TextureInfo info = plan.infos->get(k);
            parts.push_back({textures_.numberOf(unsigned(info.triangles->get(0).mesh)),
                             AtlasPlace(info.bounds, plan.areas->get(k), resolution_.atlasSize), plan.atlas});
        }
    }
    draw(std::move(parts));
}

/// The next texture is decoded while one is drawn, unless there is no room for both, and what is left of that
/// then is drawn by both threads. Only a texture that was decoded last is sure to be among those that are
/// kept meanwhile: another one is drawn before anything is decoded.
void LeafAtlases::draw(std::vector<Part> parts) {
    const auto place = [this](const Part & part) {
        return std::pair(part.texture < 0 ? -1 : int(textures_.pictureOf(unsigned(part.texture))),
                         part.texture);
    };
    std::stable_sort(parts.begin(), parts.end(),
                     [&](const Part & a, const Part & b) { return place(a) < place(b); });
    std::atomic<std::size_t> undrawn{0};
    std::function<void()> drawRest;
    std::future<void> drawing;
    const auto finish = [&] {
        if (!drawing.valid()) return;
        drawRest();
        drawing.get();
        drawRest = nullptr; // which holds the image
    };
    for (std::size_t begin = 0, end = 0; begin < parts.size() && goOn_(); begin = end) {
        const int number = parts[begin].texture;
        while (end < parts.size() && parts[end].texture == number)
            ++end;
        const unsigned loads = textures_.loads();
        const NBX::SO<NBX::Image> found = number < 0 ? nullptr : textures_.image(unsigned(number), finish);
        const NBX::SO<NBX::Image> image = found ? found : SourceTextures::standIn();
        const auto repeat = NBX::TextureGL::WM_Repeat;
        const auto wrapS = number < 0 ? repeat : textures_.wrapper(unsigned(number)).getWrapS();
        const auto wrapT = number < 0 ? repeat : textures_.wrapper(unsigned(number)).getWrapT();
        finish();
        undrawn = begin;
        drawRest = [&parts, &undrawn, end, image, wrapS, wrapT] {
            for (std::size_t i = undrawn++; i < end; i = undrawn++)
                parts[i].place.draw(*image, wrapS, wrapT, *parts[i].atlas);
        };
        drawing = std::async(std::launch::async, drawRest);
        if (textures_.loads() == loads) finish();
    }
    finish();
}

} // namespace ZMT::CORE
