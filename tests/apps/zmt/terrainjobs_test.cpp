// The scripts of docs/large-terrains.md, which write a terrain in parts.

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/zmtrun.h"

namespace {

namespace fs = std::filesystem;

const std::string s_root = ZMT_DATA_DIR "/../";
const std::string s_raster = s_root + "tests/data/everest_heights.tif";

class TerrainJobs : public ::testing::Test {
protected:
    TerrainJobs() { fs::create_directory(folder.path() / "slurm"); }

    RunResult shell(const std::string & command) const {
        const std::string path = "PATH='" + fs::path(ZMT_EXECUTABLE).parent_path().string() + "':$PATH; ";
        return runProcess("/bin/bash",
                          {"-c", path + "export PATH OPTIONS='--level 4 --lighting none'; cd '" +
                                     folder.out("") + "' && " + command},
                          folder);
    }
    /// The same bytes as those of one process, and nothing beside them.
    void expectWhole(const std::string & name) const {
        const RunResult run = runProcess(
            ZMT_EXECUTABLE,
            {"build", "terrain", s_raster, folder.out("whole.ztt"), "--level", "4", "--lighting", "none"},
            folder);
        EXPECT_EQ(0, run.status) << run.errors;
        EXPECT_TRUE(readWhole(folder.out("whole.ztt")) == readWhole(folder.out(name + ".ztt")));
        EXPECT_EQ(4U, folder.results().size());
    }

    RunFolder folder;
};

TEST_F(TerrainJobs, TheDocumentShowsTheScripts) {
    const std::string document = readWhole(s_root + "docs/large-terrains.md");
    for (const char * name : {"terrain-parallel.sh", "terrain-slurm.sh"})
        EXPECT_NE(std::string::npos, document.find(readWhole(s_root + "docs/" + name))) << name;
}

TEST_F(TerrainJobs, GnuParallelWritesTheTerrainOfOneProcess) {
    if (shell("command -v parallel").status != 0) GTEST_SKIP() << "GNU parallel is not installed";
    const std::string script = s_root + "docs/terrain-parallel.sh 3 '" + s_raster + "' parallel.ztt";
    const RunResult run = shell("JOBS=2 " + script);
    EXPECT_EQ(0, run.status) << run.errors;
    expectWhole("parallel");
}

TEST_F(TerrainJobs, GnuParallelGoesOnWhereItWasStopped) {
    if (shell("command -v parallel").status != 0) GTEST_SKIP() << "GNU parallel is not installed";
    const std::string script = s_root + "docs/terrain-parallel.sh 3 '" + s_raster + "' parallel.ztt";
    // A folder that is in the way of the plan.
    EXPECT_NE(0, shell("mkdir -p parallel.ztt.parts/plan; JOBS=2 " + script).status);
    EXPECT_EQ(0, shell("rmdir parallel.ztt.parts/plan; JOBS=2 " + script).status);
    expectWhole("parallel");
}

TEST_F(TerrainJobs, AJobArrayWritesTheTerrainOfOneProcess) {
    const std::string cluster = s_root + "tests/support/withslurm.sh ../slurm ";
    // The last job takes away the folder of the parts.
    const RunResult run =
        shell(cluster + "bash -c '" + s_root + "docs/terrain-slurm.sh 3 \"" + s_raster +
              "\" slurm.ztt && for i in {1..200}; do [ -d slurm.ztt.parts ] || break; sleep 0.5; done'");
    if (run.status == 77) GTEST_SKIP() << run.output;
    EXPECT_EQ(0, run.status) << run.errors;
    expectWhole("slurm");
}

} // namespace
