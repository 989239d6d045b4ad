// The system tests mock the udev device tree with umockdev, whose preload library must be in
// the process from its start. So the binary re-executes itself with it preloaded unless it
// already runs under it (umockdev-wrapper does the same); if the library is missing, the tests
// that need the mocked tree skip and say why.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

bool UnderPreload() {
    const char* preload = std::getenv("LD_PRELOAD");
    return preload != nullptr && std::strstr(preload, "libumockdev-preload") != nullptr;
}

bool OnlyListing(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}

// A sanitizer runtime must stay the first library of the process (address or thread sanitizer
// before the others), so the runtimes this process has go in front of umockdev's library.
std::string PreloadList() {
    std::vector<std::string> paths;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find('/') != std::string::npos) {
            paths.push_back(line.substr(line.find('/')));
        }
    }
    std::string list;
    const std::vector<std::vector<std::string>> ranks = {{"libasan.so", "libtsan.so"},
                                                         {"libubsan.so", "liblsan.so"}};
    for (const auto& rank : ranks) {
        for (const std::string& path : paths) {
            for (const std::string& prefix : rank) {
                if (path.substr(path.rfind('/') + 1).rfind(prefix, 0) == 0 &&
                    list.find(path + ":") == std::string::npos) {
                    list += path + ":";
                }
            }
        }
    }
    list += "libumockdev-preload.so.0";
    const char* existing = std::getenv("LD_PRELOAD");
    if (existing != nullptr && *existing != 0) {
        list += std::string(":") + existing;
    }
    return list;
}

} // namespace

int main(int argc, char** argv) {
    if (!UnderPreload() && std::getenv("QRV_UMOCKDEV_REEXEC") == nullptr && !OnlyListing(argc, argv)) {
        setenv("QRV_UMOCKDEV_REEXEC", "1", 1); // once: never loop if the preload does not take
        const char* previous = std::getenv("LD_PRELOAD");
        std::string saved = previous != nullptr ? previous : "";
        setenv("LD_PRELOAD", PreloadList().c_str(), 1);
        char self[PATH_MAX] = {};
        if (::readlink("/proc/self/exe", self, sizeof(self) - 1) > 0) {
            ::execv(self, argv);
        }
        // Could not re-execute: go on as we are.
        if (previous != nullptr) {
            setenv("LD_PRELOAD", saved.c_str(), 1);
        } else {
            unsetenv("LD_PRELOAD");
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
