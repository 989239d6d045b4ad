// Runs a fuzz target over files and folders of inputs, for the builds without libFuzzer: the
// committed corpus and every regression input are replayed by the ordinary test run (under the
// sanitizer presets too). Exits 0 when every input ran; a failing input aborts the process, as
// under the fuzzer.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool RunFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
        return false;
    }
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // An exactly sized heap copy, as libFuzzer hands its inputs over.
    std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    static const uint8_t kEmpty = 0;
    LLVMFuzzerTestOneInput(exact.empty() ? &kEmpty : exact.data(), exact.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
            std::sort(files.begin(), files.end());
            for (const auto& file : files) {
                ok = RunFile(file) && ok;
                ++count;
            }
        } else if (std::filesystem::exists(path, ec)) {
            ok = RunFile(path) && ok;
            ++count;
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return ok ? 0 : 1;
}
