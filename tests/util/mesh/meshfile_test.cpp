#include <zmt/util/mesh/meshfile.h>

#include <gtest/gtest.h>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/object/progress.h>

#include "support/cancelingdisplay.h"
#include "support/readmesh.h"
#include "support/zmtrun.h"

namespace {

using ZMT::UTIL::MeshFile;
using ZMT::UTIL::SurfaceMesh;
using Format = MeshFile::Format;

/// A triangle with corners that tell the axes, each at a place of its own.
SurfaceMesh triangle() {
    SurfaceMesh mesh;
    mesh.positions = {{1.0f, 2.0f, 3.0f}, {5.0f, 2.25f, 3.5f}, {1.5f, 7.0f, 0.1f}};
    mesh.triangles = {{0, 1, 2}};
    mesh.origin = {500000.25, 3100000.5, -7.0};
    mesh.scale = 0.5;
    mesh.error = 0.125;
    mesh.system = "EPSG:32645";
    return mesh;
}

TEST(MeshFile, TheSuffixTellsTheFormat) {
    EXPECT_EQ(Format::OBJ, MeshFile::formatOf("a/b.OBJ"));
    EXPECT_EQ(Format::PLY, MeshFile::formatOf("b.ply"));
    EXPECT_EQ(Format::STL, MeshFile::formatOf("x.y.Stl"));
    EXPECT_EQ(Format::GLB, MeshFile::formatOf("/.glb"));
    for (const char * other : {"", "glb", "a.glb/b", "a.gltf", "a.", "a.glb "})
        EXPECT_FALSE(MeshFile::formatOf(other)) << other;
}

TEST(MeshFile, EachFormatGivesBackWhatWasWritten) {
    const RunFolder folder;
    for (const char * suffix : {"obj", "ply", "stl", "glb"}) {
        const SurfaceMesh mesh = triangle();
        const std::string path = folder.out(std::string("m.") + suffix);
        NBX::AtomicFileWriter file(path);
        ASSERT_TRUE(MeshFile::write(mesh, *MeshFile::formatOf(path), file));
        file.commit();
        const ReadMesh read = ReadMesh::read(path);
        ASSERT_EQ(3u, read.positions.size()) << suffix;
        ASSERT_EQ(1u, read.triangles.size());
        EXPECT_EQ((ReadMesh::Vector{500000.25, 3100000.5, -7.0}), read.origin);
        EXPECT_EQ(0.5, read.scale);
        EXPECT_EQ(0.125, read.error);
        EXPECT_EQ(mesh.system, read.system) << suffix;
        for (unsigned i = 0; i < 3; ++i) {
            const auto & p = read.positions[read.triangles[0][i]];
            const auto & expected = mesh.positions[i];
            EXPECT_EQ(expected[0], float(p[0]));
            EXPECT_EQ(expected[1], float(read.isYUp ? -p[2] : p[1]));
            EXPECT_EQ(expected[2], float(read.isYUp ? p[1] : p[2]));
        }
    }
}

TEST(MeshFile, WhatIsTooLargeForAFormatDoesNotFit) {
    const SurfaceMesh mesh = triangle();
    EXPECT_TRUE(MeshFile::fits(mesh, Format::GLB, 0xFFFF0000u));
    EXPECT_FALSE(MeshFile::fits(mesh, Format::GLB, 0xFFFFF000u));
    EXPECT_TRUE(MeshFile::fits(mesh, Format::OBJ, 0xFFFFF000u));
    EXPECT_TRUE(MeshFile::fits(mesh, Format::STL));
}

TEST(MeshFile, CanBeCancelled) {
    SurfaceMesh mesh = triangle();
    mesh.positions.resize(100000);
    const RunFolder folder;
    const CancelingDisplay display;
    for (const Format format : {Format::OBJ, Format::PLY, Format::GLB}) {
        NBX::Progress progress("writing");
        NBX::AtomicFileWriter file(folder.out("m"));
        EXPECT_FALSE(MeshFile::write(mesh, format, file, nullptr, "", &progress));
    }
    EXPECT_TRUE(folder.results().empty());
}

} // namespace
