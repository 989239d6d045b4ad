// The system tests mock the udev device tree with umockdev, whose preload library must be in
// the process from its start. So the binary re-executes itself through umockdev-wrapper
// unless it already runs under it; without the wrapper the tests run anyway and skip.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

bool UnderPreload() {
    const char* preload = std::getenv("LD_PRELOAD");
    return preload != nullptr && std::strstr(preload, "libumockdev-preload") != nullptr;
}

} // namespace

int main(int argc, char** argv) {
    if (!UnderPreload() && std::getenv("QRV_UMOCKDEV_REEXEC") == nullptr) {
        setenv("QRV_UMOCKDEV_REEXEC", "1", 1); // once: never loop if the wrapper does not help
        char self[PATH_MAX] = {};
        ssize_t length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
        std::vector<char*> args = {const_cast<char*>("umockdev-wrapper"), length > 0 ? self : argv[0]};
        args.insert(args.end(), argv + 1, argv + argc);
        args.push_back(nullptr);
        ::execvp("umockdev-wrapper", args.data());
        // Not installed: go on; every test that needs the mocked tree skips and says why.
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
