// Reads one model and writes what it holds to the standard output: a program of its own, so that a damaged
// model ends this process alone. It limits itself before it looks at the file.
//
//     zmt_modelreader FILE SUFFIX MEMORY SECONDS
//
// MEMORY is in bytes, 0 for no limit. The exit status is 0 where an answer was written.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "modelimport.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool s_maySetMemory = false; // these reserve more addresses than any limit
#else
constexpr bool s_maySetMemory = true;
#endif

void limit(decltype(RLIMIT_AS) what, rlim_t most) {
    const rlimit limits = {most, most};
    if (::setrlimit(what, &limits) != 0) std::exit(3);
}

void limitProcess(unsigned long long memory, unsigned long long seconds) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (memory != 0 && s_maySetMemory) limit(RLIMIT_AS, memory);
    limit(RLIMIT_CPU, seconds);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0); // nothing is written but the answer, which goes through a pipe
}

/// The answer; that it needs too much memory where it does.
std::vector<std::uint8_t> answer(const char * path, const char * suffix) {
    try {
        return NBX::importModel(path, suffix).bytes();
    } catch (const std::bad_alloc &) {
        NBX::ModelAnswer failed;
        failed.failure = NBX::s_tooMuchMemory;
        return failed.bytes();
    }
}

bool writeAll(const std::vector<std::uint8_t> & bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 5) {
        std::fputs("usage: zmt_modelreader FILE SUFFIX MEMORY SECONDS\n"
                   "Reads a model for other programs, which understand what it writes.\n",
                   stderr);
        return 2;
    }
    limitProcess(std::strtoull(argv[3], nullptr, 10), std::strtoull(argv[4], nullptr, 10));
    const bool isWritten = writeAll(answer(argv[1], argv[2]));
    // The system takes the memory back faster than anybody else.
    std::_Exit(isWritten ? 0 : 1);
}
