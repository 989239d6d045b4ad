#pragma once

#include <string>

namespace vela::test {

// Sets (or, with unset(), removes) an environment variable for the life of the object and
// restores the previous state afterwards. Wide values keep any script on Windows; on Linux they
// are stored as UTF-8.
class ScopedEnvironment {
public:
    ScopedEnvironment(const std::string& name, const std::wstring& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    static void Set(const std::string& name, const std::wstring& value);
    static void Unset(const std::string& name);

private:
    std::string m_name;
    std::wstring m_previous;
    bool m_hadValue = false;
};

} // namespace vela::test
