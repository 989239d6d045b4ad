#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vela::test {

// Subcommands of the qrv-test-helper process. Each file in tests/helper registers its own:
//   static HelperCommand hold("hold-lock", [](const std::vector<std::string>& args) { ... });
// The helper runs as `qrv-test-helper NAME ARGS...` and exits with the function's result.
using HelperFunction = std::function<int(const std::vector<std::string>& args)>;

struct HelperCommand {
    HelperCommand(const std::string& name, HelperFunction function) {
        Registry()[name] = std::move(function);
    }
    static std::map<std::string, HelperFunction>& Registry() {
        static std::map<std::string, HelperFunction> registry;
        return registry;
    }
};

} // namespace vela::test
