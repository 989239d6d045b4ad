#pragma once

#include "common/NativeHandle.h"

#include <string>
#include <vector>

namespace vela::test {

// Where a program built beside the tests is, given the path the build system recorded on the
// build host. Cross-built and run under wine that is a Unix path, which wine turns into its drive
// letter form; failing that, the program is looked for beside the running test program. Throws
// std::runtime_error when it is nowhere.
std::wstring LocateBuiltProgram(const std::string& builtPath);

// A built program started with standard input from NUL and its standard output (and error,
// unless it shares the test's own) on pipes whose read ends are here.
struct StartedProgram {
    vela::common::UniqueHandle process;
    vela::common::UniqueHandle output;
    vela::common::UniqueHandle error; // invalid when the child writes to the test's error stream
};
// Throws std::runtime_error when the program cannot start.
StartedProgram StartBuiltProgram(const std::string& builtPath, const std::vector<std::string>& arguments,
                                 bool captureError);

} // namespace vela::test
