// Looks for leaks when main() has returned, while the threads of the process rest. The checker's own turn, at
// the very end, meets threads that are about to end, and then fails itself ("Tracer caught signal 11").

#include <sanitizer/lsan_interface.h>

extern "C" {

// The names are the linker's (--wrap=main).
int __real_main(int argc, char ** argv); // NOLINT(bugprone-reserved-identifier)

int __wrap_main(int argc, char ** argv) { // NOLINT(bugprone-reserved-identifier)
    const int status = __real_main(argc, argv);
    __lsan_do_leak_check();
    return status;
}
}
