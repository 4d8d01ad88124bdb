#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace kelvane::tests {

// Sets a variable, or unsets it (nullptr), while it lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(std::string name, const char* value) : name_(std::move(name)) {
        if (const char* const old = std::getenv(name_.c_str()))
            old_ = old;
        set(value);
    }
    ~EnvironmentVariable() { set(old_ ? old_->c_str() : nullptr); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    void set(const char* value) const {
        if (value != nullptr)
            ::setenv(name_.c_str(), value, 1);
        else
            ::unsetenv(name_.c_str());
    }

    std::string name_;
    std::optional<std::string> old_;
};

} // namespace kelvane::tests
