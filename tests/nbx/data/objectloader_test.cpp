#include <nbx/data/objectloader.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <nbx/container/sequence/array.h>
#include <nbx/data/file.h>
#include <nbx/data/objectsaver.h>
#include <nbx/object/exception.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/stringutils.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

using namespace NBX;

namespace loadertest {

class Text : public SharedObj {
    NBX_CLASS(Text, SharedObj)
public:
    std::string text, reader;
};
NBX_CLASS_IMPL(Text, SharedObj)

} // namespace loadertest

using loadertest::Text;

namespace {

/// Takes files that begin with its tag; "throw" makes it throw.
class TagReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(TagReader, ObjectReader)
public:
    TagReader(const std::string & tag, const std::string & suffix, int priority)
        : tag_(tag), suffix_(suffix), priority_(priority) {}
    int priority() const override { return priority_; }
    bool canProduce(const ID & name) const override { return Text::ClassInfoNBX()->isA(name); }
    std::string objectFileSuffix() const override { return suffix_; }
    std::string objectFormatName() const override { return "test text"; }
    SO<SharedObj> read(DataResource * resource) override {
        const std::string text(static_cast<const char *>(resource->pointer()), resource->size());
        if (text.find("throw") != std::string::npos) throw IOError(L"told to throw");
        if (text.compare(0, tag_.size(), tag_) != 0) return nullptr;
        const SO<Text> object(new Text);
        object->text = text;
        object->reader = tag_;
        object->setObjectName(resource->getObjectName());
        return object;
    }

private:
    std::string tag_, suffix_;
    int priority_;
};

/// Opens by itself what the name of the resource says, on servers as well. "refuse" in a name makes it give
/// nothing.
class RemoteReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(RemoteReader, ObjectReader)
public:
    int priority() const override { return -9; }
    bool canProduce(const ID & name) const override { return Text::ClassInfoNBX()->isA(name); }
    std::string objectFileSuffix() const override { return "remote"; }
    std::string objectFormatName() const override { return "remote text"; }
    bool readsFrom(const std::string & scheme) const override { return scheme == "http"; }
    SO<SharedObj> read(DataResource * resource) override {
        if (!resource || resource->getObjectName().find(L"refuse") != std::wstring::npos) return nullptr;
        const SO<Text> object(new Text);
        object->text = StringUtils::WString2Utf8String(resource->getObjectName());
        object->reader = "remote";
        return object;
    }
};

/// Tells by the first bytes, and counts how often it was asked for all of them.
class HeadReader : public ObjectReader {
    NBX_TEMPLATE_CLASS(HeadReader, ObjectReader)
public:
    bool canProduce(const ID & name) const override { return Text::ClassInfoNBX()->isA(name); }
    std::string objectFileSuffix() const override { return "head"; }
    std::string objectFormatName() const override { return "headed text"; }
    SO<SharedObj> read(DataResource * resource) override {
        std::string head(4, ' ');
        if (resource->read(0, head.data(), 4) != 4 || head != "HEAD") return nullptr;
        // As another process may do at any moment.
        if (isCut) std::filesystem::resize_file(resource->getObjectName(), 4);
        const SO<Text> object(new Text);
        object->text = std::string(static_cast<const char *>(resource->pointer()), resource->size());
        object->reader = "head";
        return object;
    }
    static inline bool isCut = false;
};

class TextWriter : public ObjectWriter {
    NBX_TEMPLATE_CLASS(TextWriter, ObjectWriter)
public:
    bool canWrite(const SharedObj * object) const override { return dynamic_cast<const Text *>(object); }
    std::string objectFileSuffix() const override { return "tst"; }
    std::string objectFormatName() const override { return "test text"; }
    void write(const SharedObj * object, const std::string & path) override {
        const std::string & text = static_cast<const Text *>(object)->text;
        File(path, WM_Create).write(text.data(), text.size());
    }
};

class ObjectLoaderTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        static bool isInstalled = false;
        if (isInstalled) return;
        isInstalled = true;
        ObjectLoader::install(new TagReader("low", "tst;text", -5));
        ObjectLoader::install(new TagReader("", "tst", -7));
        ObjectLoader::install(new TagReader("high", "tst", 5));
        ObjectLoader::install(new RemoteReader);
        ObjectLoader::install(new HeadReader);
        ObjectSaver::install(new TextWriter);
    }
    ~ObjectLoaderTest() override {
        for (const std::string & path : paths_)
            File::remove(path);
    }
    std::string path(const std::string & suffix) {
        const std::string reserved = File::temporaryFileName("nbx-loader-test-");
        paths_.push_back(reserved);
        paths_.push_back(reserved + suffix);
        return paths_.back();
    }
    std::string file(const std::string & suffix, const std::string & content) {
        const std::string name = path(suffix);
        File(name, WM_Create).write(content.data(), content.size());
        return name;
    }
    static SO<Text> load(const std::string & path, const ID & name = Text::ClassNameNBX(),
                         bool reports = false) {
        return soCast<Text>(ObjectLoader::readFile(path, name, reports));
    }

    std::vector<std::string> paths_;
};

TEST_F(ObjectLoaderTest, ReadersAreOrderedByPriority) {
    const std::vector<SO<ObjectReader>> readers = ObjectLoader::readers();
    ASSERT_GE(readers.size(), 3U);
    for (std::size_t i = 1; i < readers.size(); ++i)
        EXPECT_GE(readers[i - 1]->priority(), readers[i]->priority());
}

TEST_F(ObjectLoaderTest, TheFirstReaderThatMakesSomethingIsTaken) {
    EXPECT_EQ(load(file(".tst", "high low"))->reader, "high");
    EXPECT_EQ(load(file(".tst", "low"))->reader, "low");
    EXPECT_EQ(load(file(".TST", "low"))->reader, "low");
    EXPECT_EQ(load(file(".tst", "other"))->reader, "");
    EXPECT_EQ(load(file(".text", "low"))->reader, "low");
    EXPECT_FALSE(load(file(".text", "high")));
    EXPECT_EQ(load(file(".tst", ""))->reader, "") << "an empty file";
}

TEST_F(ObjectLoaderTest, WithoutAFittingSuffixAllReadersAreAsked) {
    EXPECT_EQ(load(file("", "high"))->reader, "high");
    EXPECT_EQ(load(file(".unknown", "low"))->reader, "low");
}

TEST_F(ObjectLoaderTest, TheResourceHasTheFilesName) {
    const std::string name = file(".tst", "low");
    EXPECT_EQ(load(name)->getObjectName(), StringUtils::Utf8String2WString(name));
}

TEST_F(ObjectLoaderTest, TheClassMustFit) {
    const std::string name = file(".tst", "low");
    EXPECT_TRUE(load(name, ID()));
    EXPECT_TRUE(load(name, SharedObj::ClassNameNBX()));
    EXPECT_FALSE(load(name, "NBX::Image"));
}

TEST_F(ObjectLoaderTest, FailuresAreNullAndReportedOnRequest) {
    const RecordedReports reports;
    EXPECT_FALSE(load("/no/such/file.tst"));
    EXPECT_FALSE(load("/tmp"));
    EXPECT_FALSE(load(file(".tst", "throw")));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(load("/no/such/file.tst", ID(), true));
    EXPECT_EQ(reports.last().level, 2);
    EXPECT_NE(reports.last().message.find(L"file not found: /no/such/file.tst"), std::wstring::npos)
        << reports;
    EXPECT_FALSE(load(file(".tst", "throw"), ID(), true));
    EXPECT_NE(reports.last().message.find(L"told to throw"), std::wstring::npos) << reports;
    EXPECT_FALSE(load(file(".tst", "low"), "NoSuchClass", true));
    EXPECT_NE(reports.last().message.find(L"no reader for this kind of file"), std::wstring::npos) << reports;
    EXPECT_EQ(reports.size(), 3U);
}

TEST_F(ObjectLoaderTest, NullReadersAndWritersAreReported) {
    const RecordedReports reports;
    const std::size_t before = ObjectLoader::readers().size();
    ObjectLoader::install(nullptr);
    ObjectSaver::install(nullptr);
    EXPECT_EQ(reports.count(0, L"reader", L"no reader"), 1U);
    EXPECT_EQ(reports.count(0, L"writer", L"no writer"), 1U);
    EXPECT_EQ(ObjectLoader::readers().size(), before);
}

TEST_F(ObjectLoaderTest, ObjectsAreSavedAndLoadedWhateverTheSuffix) {
    const SO<Array<double>> numbers(new Array<double>(std::vector<double>{1, 2, 3}));
    for (const char * suffix : {".nbx", ".palette", "", ".tst"}) {
        const std::string name = path(suffix);
        EXPECT_TRUE(ObjectSaver::write(numbers.get(), name));
        const SO<Array<double>> back =
            soCast<Array<double>>(ObjectLoader::readFile(name, Array<double>::ClassNameNBX(), true));
        ASSERT_TRUE(back) << suffix;
        EXPECT_EQ(back->stl(), numbers->stl());
        EXPECT_FALSE(ObjectLoader::readFile(name, Text::ClassNameNBX(), false));
    }
}

TEST_F(ObjectLoaderTest, AWriterOfTheSuffixIsTaken) {
    const SO<Text> text(new Text);
    text->text = "low tide";
    const std::string name = path(".tst");
    EXPECT_TRUE(ObjectSaver::write(text.get(), name));
    EXPECT_EQ(load(name)->text, "low tide");
}

TEST_F(ObjectLoaderTest, WhatCannotBeSavedThrowsAndLeavesTheFile) {
    const RecordedReports reports;
    EXPECT_FALSE(ObjectSaver::write(nullptr, path(".nbx")));
    EXPECT_EQ(reports.count(0, L"object", L"no object"), 1U);
    const std::string name = file(".nbx", "old");
    EXPECT_THROW(ObjectSaver::write(SO<SharedObj>(new Text).get(), name), IOException);
    EXPECT_EQ(File(name).size(), 3U);
    const SO<SharedObj> numbers(new Array<double>);
    EXPECT_THROW(ObjectSaver::write(numbers.get(), "/no/such/folder/a.nbx"), IOException);
}

TEST_F(ObjectLoaderTest, UnknownClassesInAnObjectFileAreReported) {
    const SO<Array<SO<SharedObj>>> list(new Array<SO<SharedObj>>);
    list->append(new Array<double>(2U, 1.0));
    const std::string name = path(".nbx");
    ObjectSaver::write(list.get(), name);
    std::vector<std::uint8_t> bytes = File::contents(name);
    const std::string known = "NBX::Array<double>";
    *std::search(bytes.begin(), bytes.end(), known.begin(), known.end()) = 'X';
    File(name, WM_Create).write(bytes.data(), bytes.size());
    const RecordedReports reports;
    const auto back = soCast<Array<SO<SharedObj>>>(ObjectLoader::readFile(name, ID(), false));
    ASSERT_TRUE(back);
    EXPECT_FALSE(back->get(0));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_NE(reports[0].message.find(L"XBX::Array<double>"), std::wstring::npos) << reports;
}

TEST_F(ObjectLoaderTest, ADamagedObjectFileIsNull) {
    const ID name = Array<double>::ClassNameNBX();
    EXPECT_FALSE(ObjectLoader::readFile(file(".nbx", "NBXO\r\n\x1a\n broken"), name, false));
    EXPECT_FALSE(ObjectLoader::readFile(file(".nbx", "something else"), name, false));
}

TEST_F(ObjectLoaderTest, TheClassOfAFileIsTold) {
    const std::string name = path(".any");
    ObjectSaver::write(SO<SharedObj>(new Array<double>(3U, 1.0)).get(), name);
    EXPECT_EQ(ObjectLoader::classOf(name), Array<double>::ClassNameNBX());
    const std::vector<std::uint8_t> bytes = File::contents(name);
    const SO<Array<SO<SharedObj>>> list(new Array<SO<SharedObj>>);
    list->append(new Array<double>(2U, 1.0));
    ObjectSaver::write(list.get(), name);
    EXPECT_EQ(ObjectLoader::classOf(name), (Array<SO<SharedObj>>::ClassNameNBX())) << "that of the root";
    // The class is the first thing behind the names, of which there is one.
    const auto at = [&](std::size_t size) {
        File(name, WM_Create).write(bytes.data(), size);
        return ObjectLoader::classOf(name);
    };
    for (std::size_t size = 0; size + 3 < bytes.size(); ++size)
        EXPECT_TRUE(at(size).isEmpty() || at(size) == Array<double>::ClassNameNBX()) << size;
    EXPECT_TRUE(at(bytes.size() - 20).isEmpty());
    EXPECT_TRUE(ObjectLoader::classOf(file(".any", "no object")).isEmpty());
    EXPECT_TRUE(ObjectLoader::classOf("/no/such/file").isEmpty());
    EXPECT_TRUE(ObjectLoader::classOf("/tmp").isEmpty());
}

TEST_F(ObjectLoaderTest, WhatLiesOnAServerIsForReadersThatFetchIt) {
    const RecordedReports reports;
    for (const char * url :
         {"http://host/a.remote", "HTTP://host/a.remote?x=1", "http://host/a", "http://h/a.tst"}) {
        const SO<Text> object = load(url);
        ASSERT_TRUE(object) << url;
        EXPECT_EQ(object->reader, "remote") << url;
        EXPECT_EQ(object->text, url) << "the name is the whole locator";
    }
    EXPECT_FALSE(load("ftp://host/a.remote"));
    EXPECT_FALSE(load("http://host/refuse.remote"));
    EXPECT_FALSE(load("http://host/a.remote", "NBX::Image"));
    EXPECT_TRUE(reports.empty()) << reports;
    EXPECT_FALSE(load("ftp://host/a.remote", ID(), true));
    EXPECT_NE(reports.last().message.find(L"no reader fetches"), std::wstring::npos) << reports;
    EXPECT_FALSE(load("http://host/refuse.remote", ID(), true));
    EXPECT_NE(reports.last().message.find(L"unusable as remote text"), std::wstring::npos) << reports;
}

TEST_F(ObjectLoaderTest, FileUrlsArePaths) {
    const std::string name = file(" 1.tst", "low");
    std::string url = "file://" + name;
    url.replace(url.find(' '), 1, "%20");
    const SO<Text> object = load(url);
    ASSERT_TRUE(object);
    EXPECT_EQ(object->reader, "low");
    EXPECT_EQ(object->getObjectName(), StringUtils::Utf8String2WString(name));
}

TEST_F(ObjectLoaderTest, NothingOfALargeFileIsReadUntilAReaderWantsIt) {
    const std::string name = file(".head", "TAIL");
    // Of so large a file all bytes do not fit into the memory that tests may take.
    std::filesystem::resize_file(name, std::uint64_t(3) << 30);
    const double start = NBXTime::now();
    EXPECT_FALSE(load(name));
    EXPECT_FALSE(ObjectLoader::readFile(name, "NBX::Image", false));
    EXPECT_LT(NBXTime::now() - start, 0.5);
    EXPECT_FALSE(TemporaryFolder::isMapped("nbx-loader-test-"));
}

TEST_F(ObjectLoaderTest, FileThatBecomesShorterWhileItIsReadIsAFailure) {
    const RecordedReports reports;
    const std::string name = file(".head", "HEAD and all that follows it");
    HeadReader::isCut = true;
    const SO<Text> object = load(name, Text::ClassNameNBX(), true);
    HeadReader::isCut = false;
    EXPECT_FALSE(object);
    EXPECT_NE(reports.last().message.find(L"the file became shorter"), std::wstring::npos) << reports;
    EXPECT_EQ(load(name)->text, "HEAD");
}

TEST_F(ObjectLoaderTest, LargeFileThatBecomesShorterDoesNotEndTheProcess) {
    const std::string name = file(".head", "HEAD");
    std::filesystem::resize_file(name, std::uint64_t(300) << 20);
    HeadReader::isCut = true;
    const SO<Text> object = load(name);
    HeadReader::isCut = false;
    EXPECT_FALSE(object);
}

TEST_F(ObjectLoaderTest, FoldersAndPipesAreFailures) {
    const RecordedReports reports;
    const std::string pipe = path(".tst");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string & name : {pipe, std::string("/tmp"), std::string("/dev/zero")}) {
        EXPECT_FALSE(load(name, ID(), true));
        EXPECT_NE(reports.last().message.find(L"is no regular file"), std::wstring::npos) << reports;
    }
    EXPECT_FALSE(load("", ID(), true));
}

TEST_F(ObjectLoaderTest, FilesWithoutTheRightToReadAreFailures) {
    const std::string name = file(".tst", "low");
    std::filesystem::permissions(name, std::filesystem::perms::none);
    const RecordedReports reports;
    if (::geteuid() == 0) {
        EXPECT_TRUE(load(name)) << "nothing is hidden from root";
        return;
    }
    EXPECT_FALSE(load(name, ID(), true));
    EXPECT_NE(reports.last().message.find(L"access rights"), std::wstring::npos) << reports;
}

} // namespace
