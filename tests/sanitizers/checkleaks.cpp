// Looks for leaks when main() has returned and the threads of the process rest. The checker's own turn, at
// the very end, meets threads that are about to end, and then fails itself ("Tracer caught signal 11").

#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include <sanitizer/lsan_interface.h>

namespace {

/// The number of threads is looked at so often, at most so many times.
constexpr std::chrono::milliseconds s_pause{20};
constexpr int s_mostLooks = 50;

std::ptrdiff_t threads() {
    std::error_code error;
    return std::distance(std::filesystem::directory_iterator("/proc/self/task", error),
                         std::filesystem::directory_iterator());
}

/// Those that are about to end do so; the others stay.
void waitForThreads() {
    std::ptrdiff_t before = 0;
    for (int i = 0; i < s_mostLooks; ++i) {
        const std::ptrdiff_t now = threads();
        if (now == 1 || now == before) return;
        before = now;
        std::this_thread::sleep_for(s_pause);
    }
}

} // namespace

extern "C" {

// The names are the linker's (--wrap=main).
int __real_main(int argc, char ** argv); // NOLINT(bugprone-reserved-identifier)

int __wrap_main(int argc, char ** argv) { // NOLINT(bugprone-reserved-identifier)
    const int status = __real_main(argc, argv);
    waitForThreads();
    __lsan_do_leak_check();
    return status;
}
}
