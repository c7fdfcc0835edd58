#include <core/file/readengine.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <typeinfo>

#include <gtest/gtest.h>

#include <core/file/ringreadengine.h>
#include <core/file/threadreadengine.h>
#include <support/scriptedfilecalls.h>
#include <support/temporaryfolder.h>

using namespace ZMT::CORE::IMPL;

namespace {

/// Reads of a file whose bytes tell where they lie.
class ReadEngineTest : public testing::Test {
protected:
    static constexpr std::uint64_t s_size = 64 * 4096;

    ReadEngineTest() {
        const std::string path = std::string(std::getenv("TMPDIR")) + "/file";
        std::vector<std::uint64_t> words(s_size / 8);
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = 8 * i;
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(words.data()), s_size);
        std::wstring error;
        file_ = OpenFile::open(path, error);
    }
    ~ReadEngineTest() override { ReadEngine::use(ReadEngine::RE_Automatic); }
    void SetUp() override {
        if (!ReadEngine::use(ReadEngine::RE_Ring)) GTEST_SKIP() << "this system forbids the kernel's ring";
    }

    struct Read {
        Read(const std::shared_ptr<OpenFile> & file, std::uint64_t position)
            : words(static_cast<std::uint64_t *>(std::aligned_alloc(4096, 4096)), std::free),
              read(file, position, words.get(), 4096), position(position) {}
        bool isRight() const { return words.get()[0] == position && words.get()[511] == position + 4088; }

        std::unique_ptr<std::uint64_t, void (*)(void *)> words;
        FileRead read;
        std::uint64_t position;
    };
    using Reads = std::vector<std::unique_ptr<Read>>;

    Reads started(ReadEngine & engine, std::size_t count = ReadEngine::s_mostReads) const {
        Reads reads;
        for (std::size_t i = 0; i < count; ++i) {
            reads.push_back(std::make_unique<Read>(file_, 4096 * (i + 3)));
            engine.start(reads.back()->read);
        }
        return reads;
    }
    static void expectRight(ReadEngine & engine, const Reads & reads) {
        for (const std::unique_ptr<Read> & read : reads) {
            for (int i = 0; read->read.isOwed() && i < 1000; ++i)
                engine.wait(0.01);
            EXPECT_FALSE(read->read.isOwed());
            EXPECT_EQ(read->read.error(), 0);
            EXPECT_TRUE(read->isRight()) << read->position;
        }
    }
    static bool isRing() { return dynamic_cast<RingReadEngine *>(&ReadEngine::instance()) != nullptr; }
    static bool isThreads() { return dynamic_cast<ThreadReadEngine *>(&ReadEngine::instance()) != nullptr; }

    const TemporaryFolder folder_;
    std::shared_ptr<OpenFile> file_;
};

TEST_F(ReadEngineTest, IsTheOneThatIsWanted) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Threads));
        EXPECT_TRUE(isThreads());
        EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Ring));
        EXPECT_TRUE(isRing());
        expectRight(ReadEngine::instance(), started(ReadEngine::instance()));
    }
}

TEST_F(ReadEngineTest, IsTheRingWhereTheSystemAllowsItAndThreadsElsewhere) {
    EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Automatic));
    EXPECT_TRUE(isRing());
    ScriptedFileCalls calls;
    for (const int error : {EPERM, ENOSYS, ENOMEM}) {
        calls.ringInitError = error;
        ReadEngine * const before = &ReadEngine::instance();
        EXPECT_FALSE(ReadEngine::use(ReadEngine::RE_Ring));
        EXPECT_EQ(&ReadEngine::instance(), before);
        EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Automatic));
        EXPECT_TRUE(isThreads());
        expectRight(ReadEngine::instance(), started(ReadEngine::instance()));
    }
}

TEST_F(ReadEngineTest, ThreadsTakeOverFromARingThatRefusesReads) {
    for (const int error : {-EPERM, -EAGAIN, -EBUSY, -EBADF, ScriptedFileCalls::s_takesNothing})
        for (const int before : {0, 1, 5}) {
            ASSERT_TRUE(ReadEngine::use(ReadEngine::RE_Ring));
            ReadEngine & engine = ReadEngine::instance();
            ScriptedFileCalls calls;
            calls.submitError = error;
            calls.submitsBefore = before;
            expectRight(engine, started(engine));
            EXPECT_EQ(calls.submits, before + 1) << "it is not asked again";
            expectRight(engine, started(engine));
            EXPECT_EQ(calls.submits, before + 1);
        }
}

TEST_F(ReadEngineTest, APartOfAReadFromARingThatThenRefusesIsGoneOnWith) {
    ASSERT_TRUE(ReadEngine::use(ReadEngine::RE_Ring));
    ReadEngine & engine = ReadEngine::instance();
    ScriptedFileCalls calls;
    calls.answer({1024});
    calls.submitError = -EPERM;
    calls.submitsBefore = 1;
    expectRight(engine, started(engine, 1));
    EXPECT_EQ(calls.submits, 2);
}

TEST_F(ReadEngineTest, HandingOverGoesOnAfterASignal) {
    ASSERT_TRUE(ReadEngine::use(ReadEngine::RE_Ring));
    ReadEngine & engine = ReadEngine::instance();
    ScriptedFileCalls calls;
    calls.interruptedSubmits = 4;
    expectRight(engine, started(engine, 2));
    EXPECT_EQ(calls.submits, 6);
}

TEST_F(ReadEngineTest, WaitingEndsWithTheFirstReadOrTheTime) {
    for (const ReadEngine::Kind kind : {ReadEngine::RE_Ring, ReadEngine::RE_Threads}) {
        ASSERT_TRUE(ReadEngine::use(kind));
        ReadEngine & engine = ReadEngine::instance();
        engine.wait(0.0);
        const double before = fileCalls().now();
        engine.wait(0.05);
        const double idle = fileCalls().now() - before;
        EXPECT_GE(idle, 0.045);
        EXPECT_LT(idle, 2.0);
        const Reads reads = started(engine, 1);
        engine.wait(0.9);
        EXPECT_FALSE(reads[0]->read.isOwed());
        EXPECT_LT(fileCalls().now() - before, 0.8);
    }
}

TEST_F(ReadEngineTest, ThreadsServeMoreThanThereAreOfThem) {
    ASSERT_TRUE(ReadEngine::use(ReadEngine::RE_Threads));
    ReadEngine & engine = ReadEngine::instance();
    expectRight(engine, started(engine, 40));
}

} // namespace
