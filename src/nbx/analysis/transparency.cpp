// A texture or colour counts for the whole shape, colours of vertices for each triangle. Images without alpha
// are known by their layers and not looked at. Encoded images that nobody has decoded are let go again, so
// that only one lies in memory at a time.

#include "transparency.h"

#include <array>
#include <utility>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/image/encodedimage.h>
#include <nbx/math/color.h>
#include <nbx/scene/attribute/colorattribute.h>
#include <nbx/scene/attribute/shapematerial.h>
#include <nbx/scene/shape/lineset.h>
#include <nbx/scene/shape/polygonset.h>

namespace NBX {

namespace {

bool hasAlphaLayer(LayerSequence sequence) {
    return sequence == LS_LuminanceAlpha || sequence == LS_RGBA || sequence == LS_Alpha ||
           sequence == LS_Intensity || sequence == LS_BGRA;
}

/// The texture of unit 0; null without one.
const TextureGL * textureInForce(const AttributeContext & context) {
    if (const auto * setting = context.get<TextureUnitSettingGL>(TextureUnitSettingGL::category(0)))
        return setting->texture();
    return context.get<TextureGL>(TextureGL::ClassNameNBX());
}

SO<Iterator<Color>> colorsOf(const Shape * shape) {
    if (const auto * polygons = dynamic_cast<const PolygonSet *>(shape)) return polygons->newColorIterator();
    const auto * lines = dynamic_cast<const LineSet *>(shape);
    return lines ? lines->newColorIterator() : nullptr;
}

/// The alpha of shapes without colours of their own.
double alphaInForce(const AttributeContext & context) {
    double alpha = 1.0;
    if (const auto * color = context.get<ColorAttribute>(ColorAttribute::ClassNameNBX()))
        alpha = std::min(alpha, double(color->getColor()[3]));
    if (const auto * material = context.get<ShapeMaterial>(ShapeMaterial::ClassNameNBX()))
        alpha = std::min(alpha, double(material->getAmbientAndDiffuse()[3]));
    if (const auto * material = context.get<ShapeMaterialGL>(ShapeMaterialGL::ClassNameNBX()))
        alpha = std::min(alpha, double(material->getColor()[3]));
    return alpha;
}

SO<PolygonSet> withTriangles(const PolygonSet & set, std::vector<unsigned> corners) {
    if (corners.empty()) return nullptr;
    const SO<PolygonSet> result(new PolygonSet(PolygonSet::PT_Triangles, set.newVertexIterator(),
                                               new Array<unsigned>(std::move(corners))));
    result->setNormalIterator(set.newNormalIterator());
    result->setColorIterator(set.newColorIterator());
    for (unsigned unit = 0; unit < PolygonSet::maxTextureUnits; ++unit)
        result->setTextureIterator(set.newTextureIterator(unit), unit);
    result->setObjectName(set.getObjectName());
    return result;
}

} // namespace

bool Transparency::findTransparentTexels(Image & image) const {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (isBelow(double(image.getColor(x, y)[3]))) return true;
    return false;
}

bool Transparency::hasTransparentTexels(const SO<Image> & image) {
    if (!image || !hasAlphaLayer(image->layerSequence())) return false;
    auto * encoded = dynamic_cast<EncodedImage *>(image.get());
    if (!encoded) return findTransparentTexels(*image->uncompressed(false));
    const bool wasDecoded = encoded->isDecoded();
    const SO<Image> pixels = encoded->decoded();
    const bool found = pixels && findTransparentTexels(*pixels);
    if (!wasDecoded) encoded->releasePixels();
    return found;
}

bool Transparency::hasTransparentTexture(const FlatShape & flat) {
    const auto * polygons = dynamic_cast<const PolygonSet *>(flat.shape.get());
    if (polygons && !polygons->newTextureIterator(0)) return false;
    const auto * texture = dynamic_cast<const ImageTexture2DGL *>(textureInForce(*flat.context));
    const SO<Image> image = texture ? texture->getImage() : nullptr;
    if (!image) return false;
    const auto * encoded = dynamic_cast<const EncodedImage *>(image.get());
    if (encoded && !encoded->fileName().empty()) {
        const auto [entry, isNew] = byFile_.try_emplace(encoded->fileName());
        if (isNew) entry->second = hasTransparentTexels(image);
        return entry->second;
    }
    const auto [entry, isNew] = byImage_.try_emplace(image.get());
    if (isNew) entry->second = {image, hasTransparentTexels(image)};
    return entry->second.second;
}

bool Transparency::isTransparent(const FlatShape & flat) {
    if (hasTransparentTexture(flat)) return true;
    return !colorsOf(flat.shape.get()) && isBelow(alphaInForce(*flat.context));
}

Transparency::Parts Transparency::divide(const FlatShape & flat) {
    if (isTransparent(flat)) return {nullptr, flat.shape};
    const SO<Iterator<Color>> colors = colorsOf(flat.shape.get());
    bool anyBelow = false;
    for (unsigned i = 0; colors && !anyBelow && i < colors->size(); ++i)
        anyBelow = isBelow(double(colors->get(i)[3]));
    if (!anyBelow) return {flat.shape, nullptr};
    const auto * set = dynamic_cast<const PolygonSet *>(flat.shape.get());
    if (!set) return {nullptr, flat.shape};
    std::array<std::vector<unsigned>, 2> corners; // opaque, transparent
    std::array<unsigned, 3> triangle;
    for (unsigned i = 0; i < set->triangles(); ++i) {
        if (!set->triangle(i, triangle)) continue;
        bool transparent = false;
        for (const unsigned corner : triangle)
            transparent = transparent || (corner < colors->size() && isBelow(double(colors->get(corner)[3])));
        std::vector<unsigned> & part = corners[transparent ? 1 : 0];
        part.insert(part.end(), triangle.begin(), triangle.end());
    }
    if (corners[0].empty()) return {nullptr, flat.shape};
    return {withTriangles(*set, std::move(corners[0])), withTriangles(*set, std::move(corners[1]))};
}

} // namespace NBX
