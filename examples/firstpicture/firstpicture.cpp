// firstpicture HEIGHTS IMAGE PICTURE: draws a height raster with an image on it into a PNG file.

#include <cstdio>
#include <exception>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/image/image.h>
#include <nbx/image/imagewriter.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/regular/griddata.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/gdal/imagefilepyramid.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/rasterwarp.h>

using namespace NBX;
using namespace ZMT::CORE;
using namespace ZMT::RASTER;
using Point = Vector3Base<double>;

void draw(const char * heights, const char * image, const char * picture) {
    // [draw]
    const GeoRaster raster = RasterWarp::toMetric(RasterFile(heights).read());
    SO<GridData> grid(new GridData(raster.raster.get()));
    GeoTransformation::setNBXOrigin(grid->origin()); // map coordinates are too large for single precision
    SO<GeometryPatch> root = CreateGeometryTree::create(grid.get(), 4000);
    SO<Terrain> terrain(new Terrain(grid.get(), root.get()));

    SO<ImageFilePyramid> pyramid(new ImageFilePyramid(image, raster.reference.wkt));
    SO<Array<SO<TerrainTexture>>> textures(new Array<SO<TerrainTexture>>);
    textures->append(new TiledLODTexture(pyramid.get()));

    const Point centre = terrain->boundingBox().center(); // x to the east, y up, z to the north
    const double size = terrain->boundingBox().diagonal().length();
    SO<LookAt> eye(new LookAt(centre + Point(0.0, size, -size), centre, Point(0.0, 1.0, 0.0)));
    SO<Perspective> projection(new Perspective(40.0, size * 0.1, size * 3.0));

    SO<SceneThing> scene(new SceneThing);
    scene->append(new Camera(eye.get(), projection.get()));
    scene->append(new DecalTerrainTexturingEffect(textures.get())); // what lies on the terrain comes first
    scene->append(terrain.get());

    SO<OffscreenCanvasGL> canvas(new OffscreenCanvasGL(1280, 720)); // has an OpenGL context of its own
    canvas->append(scene.get());
    canvas->redisplay();
    SO<ImageWriter>(new ImageWriter)->write(canvas->snapshot().get(), picture);
    // [draw]
}

int main(int argc, char ** argv) {
    try {
        if (argc == 4) return draw(argv[1], argv[2], argv[3]), 0;
        std::fprintf(stderr, "firstpicture HEIGHTS IMAGE PICTURE\n");
    } catch (const std::exception & error) {
        std::fprintf(stderr, "firstpicture: %s\n", error.what());
    }
    return 1;
}
