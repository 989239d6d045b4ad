#include "Arguments.h"

#include "common/StringConverter.h"

// shellapi.h needs the base types of windows.h first.
#include <windows.h>

#include <shellapi.h>

namespace vela::qrvctl {

std::vector<std::string> CommandLineArguments(int argc, char** argv) {
    int count = 0;
    LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) {
        return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
    }
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) {
        arguments.push_back(vela::common::StringConverter::ToUtf8(wide[i]));
    }
    ::LocalFree(wide);
    return arguments;
}

} // namespace vela::qrvctl
