#pragma once

#include "common/NativeHandle.h"

#include <string>
#include <vector>

namespace vela::test {

// A built program, from the path recorded at build time (a Unix path under wine), else beside the
// test program. Throws std::runtime_error when it is nowhere.
std::wstring LocateBuiltProgram(const std::string& builtPath);

// Started with input from NUL, output (and error unless it shares ours) on pipes read here.
struct StartedProgram {
    vela::common::UniqueHandle process;
    vela::common::UniqueHandle output;
    vela::common::UniqueHandle error; // invalid when the child writes to the test's error stream
};
StartedProgram StartBuiltProgram(const std::string& builtPath, const std::vector<std::string>& arguments,
                                 bool captureError);

} // namespace vela::test
