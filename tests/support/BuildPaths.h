#pragma once

namespace vela::test {

// Where this build put the programs the tests start. They are defined in a file the build writes
// (tests/CMakeLists.txt), not passed as definitions to every test compile: the paths name the
// checkout, and the compiler cache would then serve no test file to a second clone.
extern const char* const kTestHelperPath;
extern const char* const kQrvctlPath; // empty in a build without the tool

} // namespace vela::test
