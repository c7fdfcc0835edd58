// Looks for leaks when main() has returned and the threads of the process rest. The checker's own turn, at
// the very end, meets threads that are about to end, and then fails itself ("Tracer caught signal 11") and
// ends the process. Where that happens here all the same, nothing is known of leaks: the process then ends
// with what main() returned.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>

namespace {

/// The threads are looked at so often, at most so many times; so many looks alike say that they rest.
constexpr std::chrono::milliseconds s_pause{20};
constexpr int s_mostLooks = 150;
constexpr int s_looksAlike = 4;

/// What a look at the other threads of the process found.
struct Look {
    std::set<std::string> threads;
    /// None runs, and none is on its way out of the system.
    bool sleep = true;
};

/// The state of a thread as the system tells it ('S' asleep, 'R' running, 'X' gone ...); '?' of one that has
/// ended.
char stateOf(const std::filesystem::path & thread) {
    std::ifstream file(thread / "stat");
    std::string text;
    std::getline(file, text);
    // The name stands in parentheses and may hold any character.
    const std::size_t end = text.rfind(')');
    return end != std::string::npos && end + 2 < text.size() ? text[end + 2] : '?';
}

Look lookAtThreads() {
    Look look;
    const std::string own = std::to_string(gettid());
    std::error_code error;
    for (const auto & thread : std::filesystem::directory_iterator("/proc/self/task", error)) {
        if (thread.path().filename() == own) continue;
        look.threads.insert(thread.path().filename());
        look.sleep = look.sleep && stateOf(thread.path()) == 'S';
    }
    return look;
}

/// Those that are about to end do so; the others sleep.
void waitForThreads() {
    std::set<std::string> before;
    int alike = 0;
    for (int i = 0; i < s_mostLooks && alike < s_looksAlike; ++i) {
        if (i > 0) std::this_thread::sleep_for(s_pause);
        Look look = lookAtThreads();
        alike = look.sleep && (i == 0 || look.threads == before) ? alike + 1 : 0;
        before = std::move(look.threads);
    }
}

/// That of a process that leaks, as the checker has it.
constexpr int s_leakStatus = 23;

int s_mainStatus = 0;

/// Called in place of the checker's own end, when it has failed.
void endUnchecked() {
    std::fputs("The leak checker failed: nothing is known of leaks.\n", stderr);
    std::fflush(nullptr);
    _exit(s_mainStatus);
}

} // namespace

extern "C" {

// The names are the sanitizer's and the linker's (--wrap=main).
const char * __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "leak_check_at_exit=0";
}

int __real_main(int argc, char ** argv); // NOLINT(bugprone-reserved-identifier)

int __wrap_main(int argc, char ** argv) { // NOLINT(bugprone-reserved-identifier)
    s_mainStatus = __real_main(argc, argv);
    waitForThreads();
    __sanitizer_set_death_callback(endUnchecked);
    const bool leaks = __lsan_do_recoverable_leak_check() != 0;
    __sanitizer_set_death_callback(nullptr);
    return s_mainStatus == 0 && leaks ? s_leakStatus : s_mainStatus;
}
}
