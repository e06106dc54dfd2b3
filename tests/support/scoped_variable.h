// ScopedVariable: an environment variable set for as long as the object lives,
// then given back its earlier value (or unset again).
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace tarnwick::testing {

class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::string& value) : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str())) saved_ = old;
        ::setenv(name_.c_str(), value.c_str(), 1);
    }
    ~ScopedVariable() {
        if (saved_)
            ::setenv(name_.c_str(), saved_->c_str(), 1);
        else
            ::unsetenv(name_.c_str());
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    std::string name_;
    std::optional<std::string> saved_;
};

}  // namespace tarnwick::testing
