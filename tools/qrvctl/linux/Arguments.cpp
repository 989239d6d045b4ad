#include "Arguments.h"

namespace vela::qrvctl {

std::vector<std::string> CommandLineArguments(int argc, char** argv) {
    return std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc);
}

} // namespace vela::qrvctl
