#include <nbx/data/file.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/plugin.h>
#include <nbx/object/exception.h>
#include <support/recordedreports.h>

using namespace NBX;
namespace fs = std::filesystem;

namespace {

/// An empty folder for each test.
class FileTest : public testing::Test {
protected:
    FileTest() : folder_(File::temporaryFileName("nbx-file-test-") + ".d/") {
        fs::remove(folder_.substr(0, folder_.size() - 3));
        fs::create_directory(folder_);
    }
    ~FileTest() override { fs::remove_all(folder_); }

    std::string path(const std::string & name) const { return folder_ + name; }
    void write(const std::string & name, const std::string & content) const {
        File(path(name), WM_Create).write(content.data(), content.size());
    }
    std::string content(const std::string & name) const {
        const std::vector<std::uint8_t> bytes = File::contents(path(name));
        return std::string(bytes.begin(), bytes.end());
    }
    std::size_t entries() const { return File::matchingEntries(folder_, "*", true, true).size(); }

    std::string folder_;
};

using AtomicFileWriterTest = FileTest;

TEST_F(FileTest, WhatIsWrittenIsRead) {
    write("a", "hello");
    File file(path("a"));
    EXPECT_TRUE(file.isReadOnly());
    EXPECT_EQ(file.size(), 5U);
    EXPECT_EQ(file.fullName(), path("a"));
    char text[10] = {};
    EXPECT_EQ(file.read(text, 2), 2U);
    EXPECT_EQ(file.position(), 2U);
    EXPECT_EQ(file.read(text + 2, 8), 3U) << "fewer at the end";
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(file.read(text, 1), 0U);
    EXPECT_THROW(file.write("x", 1), IOException);
    EXPECT_THROW(file.resize(0), IOException);
}

TEST_F(FileTest, SeeksFromEachOrigin) {
    write("a", "0123456789");
    File file(path("a"), WM_Update);
    char c = 0;
    EXPECT_EQ(file.seek(3), 3U);
    file.read(&c, 1);
    EXPECT_EQ(c, '3');
    EXPECT_EQ(file.seek(-2, SM_Current), 2U);
    EXPECT_EQ(file.seek(-1, SM_End), 9U);
    file.read(&c, 1);
    EXPECT_EQ(c, '9');
    EXPECT_THROW(file.seek(-11, SM_End), IOException);
    EXPECT_THROW(file.seek(INT64_MIN, SM_End), IOException);
    EXPECT_THROW(file.seek(INT64_MAX, SM_End), IOException);
    EXPECT_EQ(file.position(), 10U) << "unchanged by what failed";
    file.seek(2, SM_End);
    file.write("x", 1);
    EXPECT_EQ(content("a"), std::string("0123456789\0\0x", 13));
}

TEST_F(FileTest, ModesKeepOrDropTheBytes) {
    write("a", "hello");
    File(path("a"), WM_Update).write("J", 1);
    EXPECT_EQ(content("a"), "Jello");
    File(path("a"), WM_Append).write("!", 1);
    EXPECT_EQ(content("a"), "Jello!");
    File(path("new"), WM_Append).write("!", 1);
    EXPECT_EQ(content("new"), "!");
    EXPECT_FALSE(File(path("a"), WM_Create).isReadOnly());
    EXPECT_EQ(content("a"), "");
    EXPECT_THROW(File(path("missing"), WM_Update), FileNotFoundException);
    EXPECT_FALSE(File::exists(path("missing")));
}

TEST_F(FileTest, SizesGoBeyond32Bits) {
    File file(path("large"), WM_Create);
    file.resize(5ULL << 30);
    EXPECT_EQ(file.size(), 5ULL << 30);
    file.seek(5LL << 30);
    file.write("end", 3);
    EXPECT_EQ(file.position(), (5ULL << 30) + 3);
    char text[4] = {};
    file.seek(-3, SM_End);
    file.read(text, 3);
    EXPECT_STREQ(text, "end");
}

TEST_F(FileTest, WhatCannotBeReadHasAPlainReason) {
    const auto reasonOf = [](const std::string & name) -> std::string {
        try {
            File::checkReadable(name);
        } catch (const FileNotFoundException & e) {
            return std::string("missing: ") + e.what();
        } catch (const InputException & e) {
            return e.what();
        }
        return "";
    };
    File(path("a"), WM_Create).write("x", 1);
    EXPECT_EQ(reasonOf(path("a")), "");
    EXPECT_EQ(reasonOf(path("none")).find("missing: no such file; check the name: " + path("none")), 0U);
    EXPECT_EQ(reasonOf(path("")).find("is a directory; name a file in it"), 0U);
    File(path("empty"), WM_Create);
    EXPECT_EQ(reasonOf(path("empty")).find("the file is empty; get it anew"), 0U);
}

TEST_F(FileTest, FailuresNameTheFile) {
    try {
        File(path("missing"));
        FAIL();
    } catch (const FileNotFoundException & e) {
        EXPECT_EQ(e.path(), path("missing"));
        EXPECT_NE(std::string(e.what()).find("file not found: " + path("missing")), std::string::npos);
    }
    EXPECT_THROW(File(path("no/folder"), WM_Create), IOException);
    EXPECT_THROW(File(path("")), IOException);
    EXPECT_THROW(File(path(""), WM_Create), IOException);
    EXPECT_THROW(File(""), IOException);
    ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));
    EXPECT_THROW(File(path("pipe")), IOException);
}

TEST_F(FileTest, AFullDiskThrows) {
    File full("/dev/full", WM_Update);
    EXPECT_THROW(full.write("x", 1), IOException);
}

TEST_F(FileTest, ContentsAreLimited) {
    write("a", "hello");
    EXPECT_EQ(File::contents(path("a"), 5).size(), 5U);
    EXPECT_THROW(File::contents(path("a"), 4), IOException);
    EXPECT_THROW(File::contents(path("missing")), FileNotFoundException);
}

TEST_F(FileTest, TellsWhatAPathIs) {
    write("a", "");
    EXPECT_TRUE(File::exists(path("a")));
    EXPECT_TRUE(File::isFile(path("a")));
    EXPECT_FALSE(File::isDir(path("a")));
    EXPECT_TRUE(File::isDir(folder_));
    EXPECT_FALSE(File::isFile(folder_));
    EXPECT_FALSE(File::isFile("/dev/null"));
    EXPECT_FALSE(File::exists(path("missing")));
    EXPECT_FALSE(File::exists(""));
    EXPECT_TRUE(File::remove(path("a")));
    EXPECT_FALSE(File::remove(path("a")));
    write("b", "x");
    EXPECT_FALSE(File::remove(folder_)) << "not empty";
}

TEST_F(FileTest, CopiesReplaceTheTarget) {
    write("a", std::string(3000000, 'x'));
    write("b", "old");
    File::copy(path("a"), path("b"));
    EXPECT_EQ(content("b"), content("a"));
    EXPECT_THROW(File::copy(path("missing"), path("b")), FileNotFoundException);
    EXPECT_EQ(content("b"), content("a"));
    EXPECT_THROW(File::copy(path("a"), path("no/folder")), IOException);
    EXPECT_EQ(entries(), 2U);
}

TEST(FileNames, AreTakenApart) {
    const struct {
        const char *path, *file, *base, *folder, *extension;
    } rows[] = {
        {"a/b.c.txt", "b.c.txt", "b.c", "a/", "txt"},
        {"b.txt", "b.txt", "b", "", "txt"},
        {"/b", "b", "b", "/", ""},
        {"a.d/b", "b", "b", "a.d/", ""},
        {"a/", "", "", "a/", ""},
        {"", "", "", "", ""},
        {"a/.hidden", ".hidden", ".hidden", "a/", ""},
        {"a/.hidden.x", ".hidden.x", ".hidden", "a/", "x"},
        {"a/b.", "b.", "b", "a/", ""},
        {"a/..", "..", "..", "a/", ""},
        {"h\xC3\xB6he/\xC3\xBC.png", "\xC3\xBC.png", "\xC3\xBC", "h\xC3\xB6he/", "png"},
    };
    for (const auto & row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(File::fileName(row.path), row.file);
        EXPECT_EQ(File::baseName(row.path), row.base);
        EXPECT_EQ(File::pathName(row.path), row.folder);
        EXPECT_EQ(File::extensionName(row.path), row.extension);
    }
}

TEST(FileNames, ExtensionsAreReplaced) {
    EXPECT_EQ(File::replaceExtensionName("a/b.ttt", "opaque.ttt"), "a/b.opaque.ttt");
    EXPECT_EQ(File::replaceExtensionName("a.x/b", "png"), "a.x/b.png");
    EXPECT_EQ(File::replaceExtensionName("a/b.c.txt", ""), "a/b.c");
    EXPECT_EQ(File::replaceExtensionName("a/.hidden", "x"), "a/.hidden.x");
}

TEST(FileNames, AbsolutePaths) {
    const std::string here = File::currentWorkingDir();
    EXPECT_EQ(here.back(), '/');
    EXPECT_EQ(File::currentWorkingDir(-1), here);
    EXPECT_EQ(File::absolutePath("a/b"), here + "a/b");
    EXPECT_EQ(File::absolutePath("./a/../b//c"), here + "b/c");
    EXPECT_EQ(File::absolutePath("/x/./y"), "/x/y");
    EXPECT_EQ(File::absolutePath("a", "/base/"), "/base/a");
    EXPECT_EQ(File::absolutePath("../a", "/base/b"), "/base/a");
    EXPECT_EQ(File::absolutePath("a", "base"), here + "base/a");
    EXPECT_TRUE(File::isRelative("a/b"));
    EXPECT_TRUE(File::isRelative(""));
    EXPECT_FALSE(File::isRelative("/a"));
}

TEST(FileNames, TemporaryOnesAreNewAndReserved) {
    const std::string a = File::temporaryFileName("zmt-test-"), b = File::temporaryFileName("zmt-test-");
    EXPECT_NE(a, b);
    EXPECT_EQ(File::fileName(a).find("zmt-test-"), 0U);
    EXPECT_TRUE(File::isFile(a));
    EXPECT_EQ(File(a).size(), 0U);
    File::remove(a);
    File::remove(b);
    EXPECT_THROW(File::temporaryFileName("no/such/folder-"), IOException);
}

TEST_F(FileTest, EntriesMatchPatterns) {
    for (const char * name :
         {"zmt_a.qpi", "zmt_b.qpi", "zmt_.qpi", "other.qpi", "zmt_a.qpi.bak", "a[1]", "\xC3\xBC.x"})
        write(name, "");
    fs::create_directory(path("zmt_folder.qpi"));
    using Names = std::vector<std::string>;
    EXPECT_EQ(File::matchingEntries(folder_, "zmt_*.qpi"), (Names{"zmt_.qpi", "zmt_a.qpi", "zmt_b.qpi"}));
    EXPECT_EQ(File::matchingEntries(folder_, "zmt_?.qpi"), (Names{"zmt_a.qpi", "zmt_b.qpi"}));
    EXPECT_EQ(File::matchingEntries(folder_, "zmt_*.qpi", false, true), Names{"zmt_folder.qpi"});
    EXPECT_EQ(File::matchingEntries(folder_, "*a*q*"), (Names{"zmt_a.qpi", "zmt_a.qpi.bak"}));
    EXPECT_EQ(File::matchingEntries(folder_, "a[1]"), Names{"a[1]"}) << "brackets mean themselves";
    EXPECT_EQ(File::matchingEntries(folder_, "?.x"), Names{"\xC3\xBC.x"}) << "one character of two bytes";
    EXPECT_EQ(File::matchingEntries(folder_, "*").size(), 7U);
    EXPECT_TRUE(File::matchingEntries(folder_, "").empty());
    EXPECT_TRUE(File::matchingEntries(folder_, "zmt").empty());
    EXPECT_TRUE(File::matchingEntries(path("missing"), "*").empty());
    EXPECT_TRUE(File::matchingEntries(path("a[1]"), "*").empty()) << "no folder";
}

/// A pattern that tries each way would not come to an end here.
TEST_F(FileTest, ManyStarsStayQuick) {
    write(std::string(200, 'a'), "");
    std::string pattern;
    for (int i = 0; i < 100; ++i)
        pattern += "*a";
    EXPECT_TRUE(File::matchingEntries(folder_, pattern + "b").empty());
    EXPECT_EQ(File::matchingEntries(folder_, pattern).size(), 1U);
}

TEST_F(AtomicFileWriterTest, TheTargetChangesAtTheCommit) {
    write("a", "old");
    AtomicFileWriter writer(path("a"));
    writer.write("new", 3);
    EXPECT_EQ(content("a"), "old");
    EXPECT_LE(entries(), 2U);
    writer.commit(true);
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(entries(), 1U);
    EXPECT_THROW(writer.commit(), IOException);
}

TEST_F(AtomicFileWriterTest, WithoutCommitNothingIsLeft) {
    write("a", "old");
    {
        AtomicFileWriter replaces(path("a")), makes(path("b"));
        replaces.write("new", 3);
        makes.write("new", 3);
    }
    EXPECT_EQ(content("a"), "old");
    EXPECT_EQ(entries(), 1U);
}

TEST_F(AtomicFileWriterTest, AKilledProcessLeavesNothing) {
    if (!File::createUnnamed(path("a"))) GTEST_SKIP() << "no files without names here";
    const pid_t child = ::fork();
    if (child == 0) {
        AtomicFileWriter writer(path("a"));
        writer.write("new", 3);
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(entries(), 0U);
}

TEST_F(AtomicFileWriterTest, ATargetThatAppearsMeanwhileIsReplaced) {
    AtomicFileWriter writer(path("a"));
    writer.write("new", 3);
    write("a", "other");
    writer.commit();
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(entries(), 1U);
}

TEST_F(FileTest, AFileWithoutANameCanBeGivenOne) {
    const SO<File> file = File::createUnnamed(path("a"));
    if (!file) GTEST_SKIP() << "no files without names here";
    file->write("hello", 5);
    EXPECT_EQ(entries(), 0U);
    write("taken", "old");
    EXPECT_FALSE(file->giveName(path("taken")));
    EXPECT_TRUE(file->giveName(path("a")));
    EXPECT_EQ(content("a"), "hello");
    EXPECT_EQ(content("taken"), "old");
    EXPECT_EQ(file->fullName(), path("a"));
    EXPECT_FALSE(File::createUnnamed(path("no/folder/a")));
}

TEST_F(AtomicFileWriterTest, PartsMayBeWrittenOver) {
    AtomicFileWriter writer(path("a"));
    writer.write("????tail", 8);
    writer.file().seek(0);
    writer.write("head", 4);
    writer.commit();
    EXPECT_EQ(content("a"), "headtail");
}

TEST_F(AtomicFileWriterTest, KeepsLinksAndAccessRights) {
    write("a", "old");
    ::chmod(path("a").c_str(), 0640);
    fs::create_symlink("a", path("link"));
    AtomicFileWriter writer(path("link"));
    writer.write("new", 3);
    writer.commit();
    EXPECT_EQ(content("a"), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(fs::status(path("a")).permissions(), fs::perms(0640));
}

TEST_F(AtomicFileWriterTest, ALinkToNothingIsFollowed) {
    fs::create_directory(path("folder"));
    fs::create_symlink("folder/b", path("link"));
    fs::create_symlink("link", path("second"));
    AtomicFileWriter writer(path("second"));
    writer.write("new", 3);
    writer.commit();
    EXPECT_EQ(content("folder/b"), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_TRUE(fs::is_symlink(path("second")));
    fs::create_symlink("none/b", path("lost"));
    EXPECT_THROW(AtomicFileWriter(path("lost")), IOException);
    EXPECT_TRUE(fs::is_symlink(path("lost")));
}

TEST_F(AtomicFileWriterTest, LinksInACircleAreRefused) {
    fs::create_symlink("b", path("a"));
    fs::create_symlink("a", path("b"));
    EXPECT_THROW(AtomicFileWriter(path("a")), IOException);
    EXPECT_TRUE(fs::is_symlink(path("a")));
}

/// The superuser, as whom tests may run, could replace it.
TEST_F(AtomicFileWriterTest, AWriteProtectedFileStays) {
    write("a", "old");
    fs::create_symlink("a", path("link"));
    ::chmod(path("a").c_str(), 0444);
    for (const char * name : {"a", "link"}) {
        try {
            AtomicFileWriter writer(path(name));
            writer.commit();
            ADD_FAILURE() << name;
        } catch (const IOException & error) {
            EXPECT_NE(std::string(error.what()).find("write protected"), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(content("a"), "old");
}

TEST_F(AtomicFileWriterTest, TheGoalIsOneForAllNamesOfAFile) {
    const std::string folder = fs::canonical(folder_).string() + "/";
    fs::create_directories(path("folder/inner"));
    fs::create_symlink("folder/inner", path("away"));
    fs::create_symlink("folder/b", path("link"));
    for (const char * name : {"folder/b", "link", "./folder/b", "folder/../folder/b", "away/../b"})
        EXPECT_EQ(AtomicFileWriter::goal(path(name)), folder + "folder/b") << name;
    fs::create_directory(path("b"));
    write("folder/b", "now it exists");
    EXPECT_EQ(AtomicFileWriter::goal(path("away/../b")), folder + "folder/b");
}

TEST_F(AtomicFileWriterTest, WhatIsNoFileIsRefused) {
    EXPECT_THROW(AtomicFileWriter("/dev/null"), IOException);
    EXPECT_THROW(AtomicFileWriter(folder_ + "."), IOException);
    EXPECT_THROW(AtomicFileWriter{folder_}, IOException);
    EXPECT_THROW(AtomicFileWriter(""), IOException);
    EXPECT_THROW(AtomicFileWriter(path("no/folder")), IOException);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ(entries(), 0U);
}

TEST(PlugIn, NamesTheProgramAndLoadedLibraries) {
    EXPECT_EQ(File::fileName(PlugIn::fullName("")), "nbx_data_tests");
    const std::string library = PlugIn::fullName("nbx_core.dll");
    EXPECT_EQ(File::fileName(library).find("libnbx_core.so"), 0U) << library;
    EXPECT_FALSE(File::isRelative(library));
    EXPECT_EQ(PlugIn::fullName("nbx_core"), library);
    EXPECT_EQ(PlugIn::fullName("libnbx_core.so"), library);
    EXPECT_EQ(PlugIn::fullName("no_such_library.dll"), "");
    EXPECT_EQ(PlugIn::fullName("core.dll"), "");
}

TEST_F(FileTest, PlugInsThatCannotBeLoadedAreReported) {
    write("bad.so", "no library");
    const RecordedReports reports;
    EXPECT_FALSE(PlugIn::load(path("bad.so"), ""));
    EXPECT_FALSE(PlugIn::load(folder_, "bad"));
    EXPECT_FALSE(PlugIn::load(path("missing.so"), ""));
    ASSERT_EQ(reports.size(), 3U);
    EXPECT_EQ(reports[1].level, 2);
    EXPECT_EQ(reports[1].condition, L"false");
    EXPECT_NE(reports[1].message.find(L"bad.so"), std::wstring::npos) << reports;
}

TEST(PlugIn, LoadsALibrary) {
    const RecordedReports reports;
    const std::string library = PlugIn::fullName("nbx_core.dll");
    EXPECT_TRUE(PlugIn::load(library, ""));
    EXPECT_TRUE(PlugIn::load(File::pathName(library), "nbx_core"));
    EXPECT_TRUE(reports.empty()) << reports;
}

} // namespace
