#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets a variable of the environment, or with null takes it away, while it lives. What runs meanwhile, other
/// programs included, sees it so.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char * name, const char * value) : name_(name) {
        if (const char * before = std::getenv(name)) before_ = before;
        set(value);
    }
    ~EnvironmentVariable() { set(before_ ? before_->c_str() : nullptr); }
    EnvironmentVariable(const EnvironmentVariable &) = delete;
    EnvironmentVariable & operator=(const EnvironmentVariable &) = delete;

private:
    void set(const char * value) const { value ? ::setenv(name_, value, 1) : ::unsetenv(name_); }

    const char * name_;
    std::optional<std::string> before_;
};
