// umockdev's preload library must be in the process from its start, so the binary re-executes
// itself with it preloaded (as umockdev-wrapper does); without it the mocked-tree tests skip.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

// A sanitizer runtime must stay the process's first library (address or thread before the others).
std::string PreloadList() {
    std::vector<std::string> paths;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find('/') != std::string::npos) {
            paths.push_back(line.substr(line.find('/')));
        }
    }
    std::string list;
    for (const char* prefix : {"libasan.so", "libtsan.so", "libubsan.so", "liblsan.so"}) {
        for (const std::string& path : paths) {
            if (path.substr(path.rfind('/') + 1).rfind(prefix, 0) == 0 &&
                list.find(path + ":") == std::string::npos) {
                list += path + ":";
            }
        }
    }
    const char* existing = std::getenv("LD_PRELOAD");
    return list + "libumockdev-preload.so.0" +
           (existing != nullptr && *existing != 0 ? ":" + std::string(existing) : "");
}

} // namespace

int main(int argc, char** argv) {
    const char* preload = std::getenv("LD_PRELOAD");
    if ((preload == nullptr || std::strstr(preload, "libumockdev-preload") == nullptr) &&
        std::getenv("QRV_UMOCKDEV_REEXEC") == nullptr) {
        setenv("QRV_UMOCKDEV_REEXEC", "1", 1); // once: never loop if the preload does not take
        setenv("LD_PRELOAD", PreloadList().c_str(), 1);
        char self[PATH_MAX] = {};
        if (::readlink("/proc/self/exe", self, sizeof(self) - 1) > 0) {
            ::execv(self, argv);
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
