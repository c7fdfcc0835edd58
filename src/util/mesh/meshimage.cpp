#include <zmt/util/mesh/meshimage.h>

#include <algorithm>

#include <zmt/raster/geoimage.h>

namespace ZMT::UTIL {

namespace {

struct Box {
    double minX, minY, maxX, maxY;
};

/// In the coordinates of the positions.
Box boxOf(const SurfaceMesh & mesh) {
    const auto & first = mesh.positions.front();
    Box box{first[0], first[1], first[0], first[1]};
    for (const auto & p : mesh.positions) {
        box.minX = std::min(box.minX, double(p[0]));
        box.minY = std::min(box.minY, double(p[1]));
        box.maxX = std::max(box.maxX, double(p[0]));
        box.maxY = std::max(box.maxY, double(p[1]));
    }
    return box;
}

Box onMap(const Box & box, const SurfaceMesh & mesh) {
    return {box.minX / mesh.scale + mesh.origin.x, box.minY / mesh.scale + mesh.origin.y,
            box.maxX / mesh.scale + mesh.origin.x, box.maxY / mesh.scale + mesh.origin.y};
}

/// `box` becomes the picture from edge to edge.
void setCoordinates(SurfaceMesh & mesh, const Box & box) {
    mesh.textureCoordinates.clear();
    mesh.textureCoordinates.reserve(mesh.positions.size());
    for (const auto & p : mesh.positions) {
        const double x = p[0] / mesh.scale + mesh.origin.x, y = p[1] / mesh.scale + mesh.origin.y;
        mesh.textureCoordinates.push_back(
            {float((x - box.minX) / (box.maxX - box.minX)), float((y - box.minY) / (box.maxY - box.minY))});
    }
}

} // namespace

NBX::SO<NBX::Image> MeshImage::lay(SurfaceMesh & mesh, const RASTER::TiledGeoImagePyramid & image,
                                   bool isPlaced) {
    if (mesh.positions.empty()) return nullptr;
    const Box ground = onMap(boxOf(mesh), mesh);
    const Box wanted = isPlaced ? ground : Box{image.minX(), image.minY(), image.maxX(), image.maxY()};
    const auto part =
        image.getGeoImage(wanted.minX, wanted.minY, wanted.maxX, wanted.maxY, s_mostTexels, s_mostTexels);
    if (!part || !part->image()) return nullptr;
    // Extents of images run between the centres of pixels.
    const double halfX = 0.5 * part->pixelSizeX(), halfY = 0.5 * part->pixelSizeY();
    setCoordinates(mesh, isPlaced ? Box{part->minX() - halfX, part->minY() - halfY, part->maxX() + halfX,
                                        part->maxY() + halfY}
                                  : ground);
    return part->image();
}

} // namespace ZMT::UTIL
