// Ranges of 64 KiB at random of a local file, past the system's cache where the file system allows it: with
// as many under way as the process may have, through the kernel's ring and with threads. Beside them the
// plain calls of the system by as many threads, which is what a disk gives at most to reads that wait. The
// folder for temporary files must lie on the disk that is to be measured.

#include <zmt/core/misc/asyncfile.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <core/file/readengine.h>

namespace {

using NBX::SO;
using ZMT::CORE::AsyncFile;
using ZMT::CORE::IMPL::ReadEngine;

constexpr std::uint64_t s_range = 64 << 10;
constexpr std::uint64_t s_ranges = 16384; ///< of the file
constexpr int s_reads = 8192;             ///< of a run

/// Every range begins with its number.
class SourceFile {
public:
    SourceFile()
        : path_(std::filesystem::temp_directory_path() /
                ("zmt_asyncfile_benchmark_" + std::to_string(::getpid()))) {
        std::ofstream file(path_, std::ios::binary);
        std::mt19937_64 random(1);
        std::vector<std::uint64_t> words(s_range / 8);
        for (std::uint64_t i = 0; i < s_ranges; ++i) {
            for (std::uint64_t & word : words)
                word = random();
            words[0] = i;
            file.write(reinterpret_cast<const char *>(words.data()), s_range);
        }
        file.flush();
        if (!file) std::abort();
        ::sync();
    }
    ~SourceFile() { std::filesystem::remove(path_); }
    SourceFile(const SourceFile &) = delete;
    SourceFile & operator=(const SourceFile &) = delete;

    const std::filesystem::path & path() const { return path_; }

private:
    std::filesystem::path path_;
};

const SourceFile & sourceFile() {
    static const SourceFile file;
    return file;
}

std::uint64_t firstWord(const void * bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

void reportBytes(benchmark::State & state) {
    state.SetBytesProcessed(state.iterations() * s_reads * static_cast<std::int64_t>(s_range));
    state.counters["reads/s"] = benchmark::Counter(s_reads, benchmark::Counter::kIsIterationInvariantRate);
}

/// Twice as many requests as may be under way, so that none of the places is ever empty.
bool readAtRandom(AsyncFile & file, std::mt19937 & random) {
    constexpr std::size_t waiting = 2 * ReadEngine::s_mostReads;
    std::deque<SO<AsyncFile::Request>> requests;
    for (int asked = 0, done = 0; done < s_reads; ++done) {
        for (; asked < s_reads && requests.size() < waiting; ++asked)
            requests.push_back(file.request(random() % s_ranges * s_range, s_range, 1.0));
        const SO<AsyncFile::Request> first = requests.front();
        requests.pop_front();
        if (!first->wait() || firstWord(first->data()->pointer()) != first->offset() / s_range) return false;
        file.remove(first);
    }
    return true;
}

void asyncFile(benchmark::State & state, ReadEngine::Kind kind) {
    const SO<AsyncFile> file = AsyncFile::create(sourceFile().path().wstring());
    if (!ReadEngine::use(kind)) {
        state.SkipWithError("this system has no such reads");
        return;
    }
    std::mt19937 random(2);
    for (auto _ : state)
        if (!readAtRandom(*file, random)) state.SkipWithError("wrong bytes");
    reportBytes(state);
}

void plainReads(int file, unsigned seed, std::atomic<int> & left) {
    std::mt19937 random(seed);
    void * target = std::aligned_alloc(4096, s_range);
    while (left-- > 0) {
        const std::uint64_t i = random() % s_ranges;
        if (::pread(file, target, s_range, static_cast<off_t>(i * s_range)) != ssize_t(s_range) ||
            firstWord(target) != i)
            std::abort();
    }
    std::free(target);
}

void threadsAlone(benchmark::State & state) {
    const int file = ::open(sourceFile().path().c_str(), O_RDONLY | O_DIRECT);
    unsigned seed = 3;
    for (auto _ : state) {
        std::atomic<int> left(s_reads);
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < ReadEngine::s_mostReads; ++i)
            threads.emplace_back(plainReads, file, seed++, std::ref(left));
        for (std::thread & thread : threads)
            thread.join();
    }
    ::close(file);
    reportBytes(state);
}

BENCHMARK_CAPTURE(asyncFile, ring, ReadEngine::RE_Ring)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(asyncFile, threads, ReadEngine::RE_Threads)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(threadsAlone)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
