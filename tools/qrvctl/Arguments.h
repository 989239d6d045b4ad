#pragma once

#include <string>
#include <vector>

namespace vela::qrvctl {

// The command line as UTF-8 texts, without the program name. Linux passes argv as it is (UTF-8
// on any sane system); Windows reads the wide command line, because the narrow argv would lose
// every character outside the console's code page.
std::vector<std::string> CommandLineArguments(int argc, char** argv);

} // namespace vela::qrvctl
