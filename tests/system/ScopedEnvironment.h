#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets or removes an environment variable for one test and puts the old value back afterwards.
class ScopedEnvironment
{
public:
    /// Null `value` removes the variable.
    ScopedEnvironment(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name))
            previous_ = old;
        set(value);
    }
    ~ScopedEnvironment() { set(previous_ ? previous_->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void set(const char* value)
    {
        if (value)
            setenv(name_.c_str(), value, 1);
        else
            unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> previous_;
};
