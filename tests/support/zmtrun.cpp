#include "zmtrun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr auto s_longest = std::chrono::minutes(2);

/// Programs see no settings of whoever runs the tests, also where ctest does not say so.
[[maybe_unused]] const int s_ownSettings =
    ::setenv("XDG_CONFIG_HOME",
             (fs::temp_directory_path() / ("zmt_settings_" + std::to_string(::getpid()))).c_str(), 1);

std::vector<std::string> namesIn(const fs::path & folder) {
    std::vector<std::string> names;
    for (const auto & entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void redirect(int handle, const std::string & path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(file, handle);
    ::close(file);
}

[[noreturn]] void becomeProgram(std::vector<char *> & arguments, const std::string & output,
                                const std::string & errors, unsigned long largestFile) {
    redirect(STDOUT_FILENO, output);
    redirect(STDERR_FILENO, errors);
    ::signal(SIGINT, SIG_DFL);
    if (largestFile > 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{largestFile, largestFile};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

/// True when a process has a file open in a folder, one without a name included, or has left one there.
bool hasFileIn(pid_t process, const fs::path & folder) {
    std::error_code error;
    if (!fs::is_empty(folder, error)) return true;
    for (const auto & entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd", error))
        if (fs::read_symlink(entry.path(), error).string().find(folder.string() + "/") == 0) return true;
    return false;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// True once its main thread has ended. A large process then takes a while to give its memory back, which on
/// a busy machine may fall to a thread of the lowest priority.
bool isEnding(pid_t process) {
    const std::string status = readWhole("/proc/" + std::to_string(process) + "/stat");
    const std::size_t name = status.rfind(')');
    return name == std::string::npos || status.compare(name, 3, ") Z") == 0;
}

/// Waits for the end of a process, sends it the signal when it opens a file, kills it when it takes too long.
int waitFor(pid_t process, const RunLimits & limits, double & secondsAfterSignal) {
    const auto latest = std::chrono::steady_clock::now() + s_longest;
    bool isInterrupted = limits.interruptWhenIn.empty();
    std::chrono::steady_clock::time_point signalled;
    secondsAfterSignal = -1.0;
    int status = 0;
    while (::waitpid(process, &status, WNOHANG) == 0) {
        if (!isInterrupted && hasFileIn(process, limits.interruptWhenIn)) {
            std::this_thread::sleep_for(limits.signalDelay);
            signalled = std::chrono::steady_clock::now();
            ::kill(process, limits.signal);
            isInterrupted = true;
        }
        const bool isSignalled = isInterrupted && !limits.interruptWhenIn.empty();
        if (isSignalled && secondsAfterSignal < 0.0 && isEnding(process))
            secondsAfterSignal = secondsSince(signalled);
        if (std::chrono::steady_clock::now() > latest) ::kill(process, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (secondsAfterSignal < 0.0) secondsAfterSignal = secondsSince(signalled);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

/// What the leak checker says where it fails itself, as it may, is nothing that the program says.
std::string withoutLeakChecker(std::string errors) {
    const std::string last = "The leak checker failed: nothing is known of leaks.\n";
    const std::size_t end = errors.find(last), begin = errors.find("Tracer caught signal");
    if (end != std::string::npos && begin < end) errors.erase(begin, end + last.size() - begin);
    return errors;
}

} // namespace

RunFolder::RunFolder() {
    static std::atomic<unsigned> counter{0};
    path_ = fs::temp_directory_path() /
            ("zmt_run_" + std::to_string(::getpid()) + "_" + std::to_string(++counter));
    fs::create_directories(path_ / "in");
    fs::create_directories(path_ / "out");
}

RunFolder::~RunFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string RunFolder::write(const std::string & name, const std::string & bytes) const {
    std::ofstream(in(name), std::ios::binary) << bytes;
    return in(name);
}

std::vector<std::string> RunFolder::results() const {
    return namesIn(path_ / "out");
}

std::vector<std::string> RunFolder::inputs() const {
    return namesIn(path_ / "in");
}

std::vector<std::string> RunResult::errorLines() const {
    std::vector<std::string> lines;
    std::istringstream stream(errors);
    for (std::string line; std::getline(stream, line);)
        if (line.rfind("zmt: ", 0) == 0) lines.push_back(line);
    return lines;
}

RunResult runProcess(const std::string & program, const std::vector<std::string> & arguments,
                     const RunFolder & folder, const RunLimits & limits) {
    std::vector<std::string> texts = arguments;
    texts.insert(texts.begin(), program);
    std::vector<char *> pointers;
    for (std::string & text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const std::string output = (folder.path() / "output").string();
    const std::string errors = (folder.path() / "errors").string();

    RunResult result;
    const pid_t process = ::fork();
    if (process < 0) return result;
    if (process == 0) becomeProgram(pointers, output, errors, limits.largestFile);
    result.status = waitFor(process, limits, result.secondsAfterSignal);
    result.output = readWhole(output);
    result.errors = withoutLeakChecker(readWhole(errors));
    return result;
}

std::string readWhole(const std::string & path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}
