#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vela::test {

// A subcommand of qrv-test-helper (`qrv-test-helper NAME ARGS...`), registered by a static object.
// With another number of arguments than the usage names it prints the usage and exits 2; one that
// throws a library exception ends with "error <kind>: <message>" on standard output (exit 2).
using HelperFunction = std::function<int(const std::vector<std::string>& args)>;

struct HelperCommand {
    HelperCommand(const std::string& usage, HelperFunction function) {
        const auto arity = static_cast<size_t>(std::count(usage.begin(), usage.end(), ' '));
        Registry()[usage.substr(0, usage.find(' '))] = [usage, arity, function](const auto& args) {
            if (args.size() != arity) {
                std::fprintf(stderr, "usage: %s\n", usage.c_str());
                return 2;
            }
            return function(args);
        };
    }
    static std::map<std::string, HelperFunction>& Registry() {
        static std::map<std::string, HelperFunction> registry;
        return registry;
    }
};

inline void Say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

} // namespace vela::test
