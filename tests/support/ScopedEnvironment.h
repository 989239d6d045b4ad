#pragma once

#include <string>

namespace vela::test {

// Sets an environment variable for the life of the object, then restores it. Wide values keep any
// script on Windows; on Linux they are stored as UTF-8.
class ScopedEnvironment {
public:
    ScopedEnvironment(const std::string& name, const std::wstring& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::wstring m_previous;
    bool m_hadValue = false;
};

} // namespace vela::test
