#include "nbx/io/folderfiles.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <nbx/data/file.h>

using NBX::File;
using NBX::FolderFiles;

namespace {

namespace fs = std::filesystem;

class FolderFilesTest : public testing::Test {
protected:
    FolderFilesTest() {
        top_ = File::temporaryFileName("nbx-folder-files-");
        File::remove(top_);
        fs::create_directories(top_ + "/model/Textures/deep");
        for (const char * name :
             {"/outside.png", "/model/wall.png", "/model/Textures/Roof.PNG", "/model/Textures/roof.png",
              "/model/Textures/deep/a b%20c.png", "/model/100%.png", "/modelled.png"})
            std::ofstream(top_ + name) << "x";
        fs::create_symlink(top_ + "/outside.png", top_ + "/model/link.png");
        fs::create_symlink("../modelled.png", top_ + "/model/sibling.png");
        fs::create_symlink("..", top_ + "/model/up");
        fs::create_symlink("wall.png", top_ + "/model/inner.png");
        fs::create_symlink("nowhere.png", top_ + "/model/broken.png");
    }
    ~FolderFilesTest() override { fs::remove_all(top_); }

    FolderFiles::Found find(const std::string & reference) const {
        return FolderFiles(top_ + "/model").find(reference);
    }
    /// The path below the model's folder.
    std::string path(const std::string & reference) const {
        const std::string path = find(reference).path;
        const std::string folder = fs::canonical(top_ + "/model").string() + "/";
        EXPECT_TRUE(path.empty() || path.starts_with(folder)) << path;
        return path.empty() ? "" : path.substr(folder.size());
    }
    std::string refusal(const std::string & reference) const {
        EXPECT_EQ(find(reference).path, "") << reference;
        return find(reference).refusal;
    }

    std::string top_;
};

} // namespace

TEST_F(FolderFilesTest, FindsFilesInTheFolderAndBelow) {
    EXPECT_EQ(path("wall.png"), "wall.png");
    EXPECT_EQ(path("./wall.png"), "wall.png");
    EXPECT_EQ(path("Textures//deep/./a b%20c.png"), "Textures/deep/a b%20c.png");
    EXPECT_EQ(path("inner.png"), "inner.png");
}

TEST_F(FolderFilesTest, TakesBothSeparatorsAndTheEscapesOfUrls) {
    EXPECT_EQ(path("Textures\\Roof.PNG"), "Textures/Roof.PNG");
    EXPECT_EQ(path("Textures/deep/a%20b%2520c.png"), "Textures/deep/a b%20c.png");
    EXPECT_EQ(path("100%.png"), "100%.png");
    EXPECT_EQ(path("100%25.png"), "100%.png");
}

TEST_F(FolderFilesTest, FindsNamesWhateverTheirCaseButFirstAsTheyAreWritten) {
    EXPECT_EQ(path("WALL.Png"), "wall.png");
    EXPECT_EQ(path("textures/Roof.PNG"), "Textures/Roof.PNG");
    EXPECT_EQ(path("textures/roof.png"), "Textures/roof.png");
    EXPECT_EQ(path("textures/ROOF.png"), "Textures/Roof.PNG");
}

TEST_F(FolderFilesTest, WhatIsNotThereIsNeitherFoundNorRefused) {
    for (const char * reference :
         {"none.png", "none/wall.png", "wall.png/x", "broken.png", "Textures", ".", "", "/", "wall"}) {
        const FolderFiles::Found found = find(reference);
        EXPECT_EQ(found.path, "") << reference;
        if (std::string(reference) != "/") {
            EXPECT_EQ(found.refusal, "") << reference;
        }
    }
}

TEST_F(FolderFilesTest, PathsThatLeadOutAreRefused) {
    const std::string out = "its path leads out of the folder";
    EXPECT_EQ(refusal("../outside.png"), out);
    EXPECT_EQ(refusal("Textures/../../outside.png"), out);
    EXPECT_EQ(refusal("Textures/../wall.png"), out);
    EXPECT_EQ(refusal("..\\outside.png"), out);
    EXPECT_EQ(refusal("%2e%2e/outside.png"), out);
    EXPECT_EQ(refusal("..%2foutside.png"), out);
}

TEST_F(FolderFilesTest, AbsolutePathsAndOtherSchemesAreRefused) {
    const std::string absolute = "its path is absolute", elsewhere = "it lies on a server or is no file";
    EXPECT_EQ(refusal(top_ + "/model/wall.png"), absolute);
    EXPECT_EQ(refusal("\\\\host\\wall.png"), absolute);
    EXPECT_EQ(refusal("C:\\wall.png"), absolute);
    EXPECT_EQ(refusal("file:///wall.png"), absolute);
    EXPECT_EQ(refusal("%2Fetc/passwd"), absolute);
    EXPECT_EQ(refusal("http://host/wall.png"), elsewhere);
    EXPECT_EQ(refusal("DATA:image/png;base64,AA"), elsewhere);
}

TEST_F(FolderFilesTest, LinksThatLeadOutAreRefused) {
    const std::string refused = "it is a link that leads out of " + fs::canonical(top_ + "/model").string();
    EXPECT_EQ(refusal("link.png"), refused);
    EXPECT_EQ(refusal("LINK.png"), refused);
    EXPECT_EQ(refusal("sibling.png"), refused); // its path begins as the folder's does
    EXPECT_EQ(refusal("up/outside.png"), refused);
    EXPECT_EQ(refusal("up/model/wall.png"), refused);
    EXPECT_EQ(refusal("up/modelled.png"), refused);
}

TEST_F(FolderFilesTest, ALinkToTheFolderItselfIsNone) {
    fs::create_directory_symlink(top_ + "/model", top_ + "/alias");
    EXPECT_FALSE(FolderFiles(top_ + "/alias").find("wall.png").path.empty());
    EXPECT_FALSE(FolderFiles(top_ + "/alias/").find("Textures/roof.png").path.empty());
}

TEST_F(FolderFilesTest, LongReferencesAreRefused) {
    EXPECT_EQ(refusal(std::string(5000, 'a')), "its path is too long or none");
    std::string many;
    for (int i = 0; i < 100; ++i)
        many += "a/";
    EXPECT_EQ(refusal(many + "x"), "its path is too long or none");
    EXPECT_EQ(refusal(std::string("wall.png\0/x", 11)), "its path is too long or none");
}

TEST_F(FolderFilesTest, AFolderThatIsMissingHoldsNothing) {
    EXPECT_EQ(FolderFiles(top_ + "/none").find("wall.png").path, "");
    EXPECT_EQ(FolderFiles(top_ + "/model/wall.png").find("wall.png").path, "");
}

TEST_F(FolderFilesTest, LastNamesStandBehindEitherSeparator) {
    EXPECT_EQ(FolderFiles::lastName("C:\\a\\b.png"), "b.png");
    EXPECT_EQ(FolderFiles::lastName("a/b.png"), "b.png");
    EXPECT_EQ(FolderFiles::lastName("b.png"), "b.png");
}
