#include "CliTestSupport.h"
#include "support/BuildPaths.h"
#include "support/linux/SpawnedProgram.h"

namespace vela::test {

CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs) {
    SpawnedProgram tool(kQrvctlPath, arguments, SpawnedProgram::Output::pipes);
    CliResult result;
    // Streams that did not end in time: the destructor kills the tool, the code says -1.
    result.code = tool.ReadToEnd(timeoutMs) ? tool.Wait(10000) : -1;
    result.out = tool.Out();
    result.err = tool.Err();
    return result;
}

} // namespace vela::test
