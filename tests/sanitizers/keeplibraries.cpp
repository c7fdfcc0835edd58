// Keeps every loaded library until the process ends, so that the sanitizers can
// name the driver in which memory was allocated: eglTerminate() unloads it before
// leaks are looked for, and suppressions match names only.

extern "C" __attribute__((visibility("default"))) int dlclose(void * /*library*/) {
    return 0;
}
