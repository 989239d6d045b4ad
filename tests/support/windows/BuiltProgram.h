#pragma once

#include <string>

namespace vela::test {

// Where a program built beside the tests is, given the path the build system recorded on the
// build host. Cross-built and run under wine that is a Unix path, which wine turns into its drive
// letter form; failing that, the program is looked for beside the running test program. Throws
// std::runtime_error when it is nowhere.
std::wstring LocateBuiltProgram(const std::string& builtPath);

// One argument quoted so that the child's C runtime (CommandLineToArgvW rules) reads it back as is.
std::wstring QuoteArgument(const std::wstring& argument);

} // namespace vela::test
