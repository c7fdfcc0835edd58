// The program is started without a copy of this process, which may have many threads: `posix_spawn` with all
// its files closed but the pipe through which it answers. A group of its own keeps Ctrl-C from it, so that a
// cancelled step ends as one and not as a damaged file.

#include "readerprocess.h"

#include "plaintext.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nbx/object/exception.h>
#include <nbx/object/nbxtime.h>
#include <nbx/object/progress.h>
#include <nbx/object/stringutils.h>

extern "C" char ** environ;

namespace NBX {

namespace {

constexpr int s_lookMilliseconds = 50;
/// Of an answer, where the memory has no limit.
constexpr std::uint64_t s_longestAnswer = std::uint64_t{4} << 30;

struct Chosen {
    std::mutex mutex;
    std::string program;
};

Chosen & chosen() {
    static Chosen & instance = *new Chosen;
    return instance;
}

std::string folderOfLibrary() {
    Dl_info info;
    if (!::dladdr(reinterpret_cast<const void *>(&ReaderProcess::program), &info) || !info.dli_fname)
        return {};
    std::error_code error;
    const auto path = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::string() : path.parent_path().string();
}

class Pipe {
public:
    Pipe() {
        if (::pipe2(ends_.data(), O_CLOEXEC) != 0)
            throw IOException(L"no pipe to a reader of models", "", 0, ErrorText());
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe &) = delete;
    Pipe & operator=(const Pipe &) = delete;

    int readingEnd() const { return ends_[0]; }
    int writingEnd() const { return ends_[1]; }
    void closeEnd(int end) {
        if (ends_[end] >= 0) ::close(ends_[end]);
        ends_[end] = -1;
    }

private:
    static std::wstring ErrorText() { return StringUtils::Utf8String2WString(std::strerror(errno)); }
    std::array<int, 2> ends_ = {-1, -1};
};

/// A child that is ended, if it still runs, and waited for when this goes.
class Child {
public:
    Child(const std::string & program, std::vector<std::string> arguments, int answerTo) {
        arguments.insert(arguments.begin(), program);
        std::vector<char *> pointers;
        pointers.reserve(arguments.size() + 1);
        for (std::string & argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, answerTo, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes,
                                 POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        const int error =
            ::posix_spawn(&id_, program.c_str(), &actions, &attributes, pointers.data(), environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        if (error == 0) return;
        id_ = -1;
        throw IOException(L"cannot be started", program, 0,
                          StringUtils::Utf8String2WString(std::strerror(error)));
    }
    ~Child() {
        if (id_ < 0 || isOver()) return;
        ::kill(id_, SIGKILL);
        while (::waitpid(id_, &status_, 0) < 0 && errno == EINTR) {
        }
    }
    Child(const Child &) = delete;
    Child & operator=(const Child &) = delete;

    bool isOver() {
        if (!isOver_) isOver_ = ::waitpid(id_, &status_, WNOHANG) == id_;
        return isOver_;
    }
    /// Once it is over.
    bool hasSucceeded() const { return WIFEXITED(status_) && WEXITSTATUS(status_) == 0; }
    /// The signal that ended it, or 0.
    int signal() const { return WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }

private:
    pid_t id_ = -1;
    int status_ = 0;
    bool isOver_ = false;
};

/// One run: what ends it early throws.
class Run {
public:
    Run(const std::string & path, const ReaderProcess::Limits & limits)
        : path_(path), limits_(limits), deadline_(NBXTime::now() + limits.seconds),
          progress_("reading " + std::filesystem::path(path).filename().string()) {}

    std::vector<std::uint8_t> answer(const std::string & program, const std::string & suffix) {
        Pipe pipe;
        const auto seconds = static_cast<std::uint64_t>(std::ceil(limits_.seconds)) + 1;
        Child child(program, {path_, suffix, std::to_string(limits_.memory), std::to_string(seconds)},
                    pipe.writingEnd());
        pipe.closeEnd(1);
        std::vector<std::uint8_t> bytes = readAll(pipe.readingEnd());
        while (!child.isOver()) {
            look();
            ::poll(nullptr, 0, 2);
        }
        if (!child.hasSucceeded()) throw failure(child.signal());
        progress_.finish();
        return bytes;
    }

private:
    InputException failure(int signal) const {
        if (signal == SIGXCPU) return tookTooLong();
        const std::wstring reason =
            signal ? L"its reader was ended by signal " + std::to_wstring(signal) : L"its reader gave up";
        return InputException(reason + L"; the file may be damaged, write it anew", path_);
    }
    InputException tookTooLong() const {
        return InputException(L"its reader took longer than " +
                                  std::to_wstring(static_cast<long long>(std::ceil(limits_.seconds))) +
                                  L" s; the file may be damaged, else make it smaller",
                              path_);
    }

    void look() {
        if (!progress_.update(0.0)) throw InputException(L"cancelled", path_);
        if (NBXTime::now() > deadline_) throw tookTooLong();
    }

    std::vector<std::uint8_t> readAll(int file) {
        std::vector<std::uint8_t> bytes;
        std::vector<std::uint8_t> part(std::size_t{1} << 20);
        const std::uint64_t most = limits_.memory ? limits_.memory : s_longestAnswer;
        for (;;) {
            look();
            pollfd wanted = {file, POLLIN, 0};
            if (::poll(&wanted, 1, s_lookMilliseconds) <= 0) continue;
            const ssize_t count = ::read(file, part.data(), part.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return bytes;
            if (bytes.size() + static_cast<std::size_t>(count) > most)
                throw InputException(L"holds more than may be read; make it smaller", path_);
            bytes.insert(bytes.end(), part.begin(), part.begin() + count);
        }
    }

    std::string path_;
    ReaderProcess::Limits limits_;
    double deadline_;
    Progress progress_;
};

} // namespace

std::string ReaderProcess::program() {
    {
        Chosen & choice = chosen();
        const std::lock_guard lock(choice.mutex);
        if (!choice.program.empty()) return choice.program;
    }
    const std::string folder = folderOfLibrary();
    for (const char * place : {"/zmt_modelreader", "/" ZMT_MODELREADER}) {
        std::error_code error;
        if (!folder.empty() && std::filesystem::is_regular_file(folder + place, error)) return folder + place;
    }
    return {};
}

void ReaderProcess::setProgram(const std::string & path) {
    Chosen & choice = chosen();
    const std::lock_guard lock(choice.mutex);
    choice.program = path;
}

ModelAnswer ReaderProcess::read(const std::string & path, const std::string & suffix, const Limits & limits) {
    const std::string program = ReaderProcess::program();
    if (program.empty())
        throw IOException(L"models cannot be read: zmt_modelreader is missing beside the library; install "
                          L"the whole package");
    const std::vector<std::uint8_t> bytes = Run(path, limits).answer(program, suffix);
    ModelAnswer answer;
    if (!ModelAnswer::read(bytes, answer))
        throw InputException(L"its reader made no sense of it; the file may be damaged, write it anew", path);
    if (!answer.failure.empty())
        throw InputException(L"cannot be read as " + StringUtils::Utf8String2WString(suffix) + L": " +
                                 StringUtils::Utf8String2WString(plainText(answer.failure)),
                             path);
    if (answer.nodes.empty())
        throw InputException(L"its reader made no sense of it; the file may be damaged, write it anew", path);
    for (std::string & line : answer.leftOut)
        line = plainText(line);
    return answer;
}

} // namespace NBX
