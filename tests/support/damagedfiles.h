#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <nbx/object/nbxtime.h>

/// How many random changes of a small file a test tries: the number in `ZMT_TEST_CHANGES`, without it 1000.
inline unsigned randomChanges() {
    const char * number = std::getenv("ZMT_TEST_CHANGES");
    return number ? static_cast<unsigned>(std::strtoul(number, nullptr, 10)) : 1000;
}

/// Looking at a file of `bytes` bytes, damaged or not, is to take less than 16 times as much memory and 64
/// MiB, and no more than some seconds. Checks that when it goes.
class ModestLook {
public:
    explicit ModestLook(std::size_t bytes) : most_(16 * bytes + (64U << 20U)) {
        std::ofstream("/proc/self/clear_refs") << 5; // the peak begins anew
        before_ = bytesOf("VmRSS:");
    }
    ~ModestLook() {
        EXPECT_LT(NBX::NBXTime::now() - start_, s_mostSeconds);
// These keep what was freed, or several times as much as is used.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_LE(bytesOf("VmHWM:"), before_ + most_);
#endif
    }
    ModestLook(const ModestLook &) = delete;
    ModestLook & operator=(const ModestLook &) = delete;

private:
    static constexpr double s_mostSeconds = 20.0;

    static std::size_t bytesOf(const std::string & key) {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            std::size_t kibibytes = 0;
            if (word == key && status >> kibibytes) return kibibytes * 1024;
        }
        ADD_FAILURE() << key;
        return 0;
    }

    const std::size_t most_;
    std::size_t before_ = 0;
    const double start_ = NBX::NBXTime::now();
};
