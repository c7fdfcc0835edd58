#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <unistd.h>

/// While it lives, temporary files lie in a folder of their own, which then goes with all that is in it.
class TemporaryFolder {
public:
    TemporaryFolder() : path_(testing::TempDir() + "zmt_test_" + std::to_string(::getpid())) {
        if (const char * before = std::getenv("TMPDIR")) before_ = before;
        std::filesystem::create_directory(path_);
        ::setenv("TMPDIR", path_.c_str(), 1);
    }
    ~TemporaryFolder() {
        if (before_)
            ::setenv("TMPDIR", before_->c_str(), 1);
        else
            ::unsetenv("TMPDIR");
        std::filesystem::remove_all(path_);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder & operator=(const TemporaryFolder &) = delete;

    bool isEmpty() const { return std::filesystem::is_empty(path_); }
    /// Whether this process has a file mapped whose name began with `prefix`, even if it has none any more.
    static bool isMapped(const std::string & prefix) {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            if (line.find("/" + prefix) != std::string::npos) return true;
        return false;
    }

private:
    std::string path_;
    std::optional<std::string> before_;
};
