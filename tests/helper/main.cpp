#include "helper/HelperCommand.h"

#include <cstdio>

int main(int argc, char** argv) {
    // Line-buffered output so a parent test sees each "ready" line as soon as it is printed.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    if (argc < 2) {
        std::fprintf(stderr, "usage: qrv-test-helper COMMAND [ARGS...]\n");
        return 2;
    }
    auto& registry = vela::test::HelperCommand::Registry();
    auto it = registry.find(argv[1]);
    if (it == registry.end()) {
        std::fprintf(stderr, "qrv-test-helper: unknown command '%s'\n", argv[1]);
        return 2;
    }
    return it->second(std::vector<std::string>(argv + 2, argv + argc));
}
