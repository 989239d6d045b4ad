#include "support/ScopedEnvironment.h"

#include "common/StringConverter.h"

#include <cstdlib>

namespace vela::test {

using vela::common::StringConverter;

namespace {

void Set(const std::string& name, const std::wstring& value) {
#ifdef _WIN32
    _wputenv_s(StringConverter::FromUtf8(name).c_str(), value.c_str());
#else
    setenv(name.c_str(), StringConverter::ToUtf8(value).c_str(), 1);
#endif
}

void Unset(const std::string& name) {
#ifdef _WIN32
    _wputenv_s(StringConverter::FromUtf8(name).c_str(), L""); // an empty value removes it
#else
    unsetenv(name.c_str());
#endif
}

} // namespace

ScopedEnvironment::ScopedEnvironment(const std::string& name, const std::wstring& value) : m_name(name) {
#ifdef _WIN32
    const wchar_t* previous = _wgetenv(StringConverter::FromUtf8(name).c_str());
    if (previous != nullptr) {
        m_previous = previous;
    }
#else
    const char* previous = std::getenv(name.c_str());
    if (previous != nullptr) {
        m_previous = StringConverter::FromUtf8(previous);
    }
#endif
    m_hadValue = previous != nullptr;
    Set(name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (m_hadValue) {
        Set(m_name, m_previous);
    } else {
        Unset(m_name);
    }
}

} // namespace vela::test
