#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include <support/recordedreports.h>

#include <nbx/data/file.h>
#include <nbx/data/plugin.h>
#include <zmt/core/misc/plugin.h>

#include <sys/stat.h>
#include <unistd.h>

using NBX::File;
using ZMT::CORE::Plugin;

namespace {

/// Takes what is written to the standard error stream while it lives.
class CapturedErrors {
public:
    CapturedErrors() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
    ~CapturedErrors() { std::cerr.rdbuf(before_); }
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf * before_;
};

/// Puts files into the folder for plug-ins beside the program, and takes them away at the end.
class PluginTest : public testing::Test {
protected:
    PluginTest() {
        ::unsetenv("ZMT_TEST_PLUGIN_LOADED");
        use(folder_);
        use(libraryFolder_);
    }
    ~PluginTest() override {
        for (auto path = made_.rbegin(); path != made_.rend(); ++path)
            File::remove(*path);
    }

    static std::string folderBeside(const std::string & library) {
        return File::pathName(NBX::PlugIn::fullName(library)) + "plugins/";
    }
    void write(const std::string & path, const std::string & text) {
        std::ofstream(path, std::ios::binary) << text;
        made_.push_back(path);
    }
    /// A plug-in with a name of its own, since the same file is loaded only once.
    std::string newPlugin() {
        static int count = 0;
        const std::string name = "zmt_test_plugin_" + std::to_string(++count) + ".so";
        File::copy(ZMT_TEST_PLUGIN, folder_ + name);
        made_.push_back(folder_ + name);
        return name;
    }
    static std::string initialized() {
        const CapturedErrors errors;
        Plugin::InitializePlugins();
        return errors.text();
    }
    static int loaded() {
        const char * count = std::getenv("ZMT_TEST_PLUGIN_LOADED");
        return count ? std::atoi(count) : 0;
    }

    RecordedReports reports_;
    const std::string folder_ = folderBeside("");
    const std::string libraryFolder_ = folderBeside("zmt_core.dll");

private:
    void use(const std::string & folder) {
        if (::mkdir(folder.c_str(), 0755) == 0) made_.push_back(folder);
    }

    std::vector<std::string> made_;
};

TEST_F(PluginTest, WithoutMarkerFilesNothingHappens) {
    EXPECT_EQ(initialized(), "");
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(PluginTest, LoadsALibraryRelativeToTheMarkerFile) {
    const std::string name = newPlugin();
    write(folder_ + "zmt_x64_a.qpi", name + "\n");
    EXPECT_EQ(initialized(),
              "Loading plugin: zmt_x64_a.qpi\n\tloading: " + folder_ + name + "...\n\t\tOK!\n");
    EXPECT_EQ(loaded(), 1);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(PluginTest, LoadsALibraryByItsAbsolutePath) {
    const std::string path = folder_ + newPlugin();
    write(folder_ + "zmt_x64_a.qpi", path);
    EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_a.qpi\n\tloading: " + path + "...\n\t\tOK!\n");
    EXPECT_EQ(loaded(), 1);
}

TEST_F(PluginTest, FoldersBesideTheLibraryComeFirst) {
    ASSERT_NE(folder_, libraryFolder_) << "library and program share a folder in this build";
    const std::string first = newPlugin(), second = newPlugin();
    write(libraryFolder_ + "zmt_x64_z.qpi", folder_ + first);
    write(folder_ + "zmt_x64_a.qpi", second);
    EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_z.qpi\n\tloading: " + folder_ + first +
                                 "...\n\t\tOK!\nLoading plugin: zmt_x64_a.qpi\n\tloading: " + folder_ +
                                 second + "...\n\t\tOK!\n");
    EXPECT_EQ(loaded(), 2);
}

/// These tests again, by a program that lies where the library does: the folder of both is scanned once.
TEST_F(PluginTest, AFolderOfBothIsScannedOnce) {
    const std::string library = NBX::PlugIn::fullName("zmt_core.dll");
    const std::string neighbour = File::pathName(library) + "zmt_plugin_test_" + std::to_string(::getpid());
    ASSERT_EQ(::link(NBX::PlugIn::fullName("").c_str(), neighbour.c_str()), 0) << neighbour;
    const std::string command =
        "'" + neighbour + "' --gtest_filter=PluginTest.MarkerFilesAreTakenByName > /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    File::remove(neighbour);
}

TEST_F(PluginTest, TheLastLineThatNamesAFileDecides) {
    const std::string plugin = newPlugin();
    write(folder_ + "no_library.so", "no library");
    write(folder_ + "zmt_x64_a.qpi", "no_library.so\n" + plugin + "\nmissing.so\n");
    EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_a.qpi\n\tloading: " + folder_ +
                                 "no_library.so...\n\tloading: " + folder_ + plugin + "...\n\t\tOK!\n");
    EXPECT_EQ(loaded(), 1);

    write(folder_ + "zmt_x64_a.qpi", plugin + "\nno_library.so\n");
    EXPECT_TRUE(initialized().ends_with("\t\tFAILED!\n"));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(PluginTest, AMarkerFileThatNamesNoFileFails) {
    for (const std::string text : {"", "\n\n", "missing.so\n", ".\n", "/\n", "\r\n"}) {
        SCOPED_TRACE(text);
        write(folder_ + "zmt_x64_a.qpi", text);
        EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_a.qpi\n\t\tFAILED!\n");
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(PluginTest, LinesMayEndWithTwoCharacters) {
    write(folder_ + "zmt_x64_a.qpi", newPlugin() + "\r\n");
    EXPECT_TRUE(initialized().ends_with("OK!\n"));
    EXPECT_EQ(loaded(), 1);
}

TEST_F(PluginTest, AnEndlessMarkerFileFails) {
    write(folder_ + "zmt_x64_a.qpi", std::string(2 << 20, '\n') + newPlugin());
    EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_a.qpi\n\t\tFAILED!\n");
    EXPECT_EQ(loaded(), 0);
}

TEST_F(PluginTest, OtherNamesAreLeftOut) {
    const std::string plugin = newPlugin();
    for (const std::string name : {"zmt_x64_debug_a.qpi", "zmt_x64_a_debug_b.qpi", "zmt_x64_a.txt",
                                   "zmt_x86_a.qpi", "other_x64_a.qpi", "zmt_x64.qpi", "zmt_x64_a.qpi.old"})
        write(folder_ + name, plugin);
    EXPECT_EQ(initialized(), "");
    EXPECT_EQ(loaded(), 0);
}

TEST_F(PluginTest, MarkerFilesAreTakenByName) {
    for (const std::string name : {"zmt_x64_c.qpi", "zmt_x64_a.qpi", "zmt_x64_b.qpi"})
        write(folder_ + name, "");
    EXPECT_EQ(initialized(), "Loading plugin: zmt_x64_a.qpi\n\t\tFAILED!\n"
                             "Loading plugin: zmt_x64_b.qpi\n\t\tFAILED!\n"
                             "Loading plugin: zmt_x64_c.qpi\n\t\tFAILED!\n");
}

} // namespace
