// A plug-in as applications write them: whatever it does, it does when it is loaded.

#include <cstdlib>
#include <string>

namespace {

/// Counts the loading in the environment, which is what the test and the plug-in share.
struct Start {
    Start() {
        const char * before = std::getenv("ZMT_TEST_PLUGIN_LOADED");
        const int count = before ? std::atoi(before) : 0;
        ::setenv("ZMT_TEST_PLUGIN_LOADED", std::to_string(count + 1).c_str(), 1);
    }
};
const Start start;

} // namespace
