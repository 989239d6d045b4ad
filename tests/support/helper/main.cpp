#include "support/helper/HelperCommand.h"

#include "common/Exception.h"
#include "common/StringConverter.h"

#include <cstdio>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>

#include <shellapi.h>
#endif

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
    std::vector<std::string> args(argv + 2, argv + argc);
#ifdef _WIN32
    // The C runtime's arguments are in the ANSI code page, which loses non-ASCII names.
    int count = 0;
    if (LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count)) {
        if (count == argc) {
            for (int i = 2; i < count; ++i) {
                args[static_cast<size_t>(i - 2)] = vela::common::StringConverter::ToUtf8(wide[i]);
            }
        }
        ::LocalFree(wide);
    }
#endif
    try {
        return it->second(args);
    } catch (const vela::common::Exception& e) { // told on standard output, where the parent reads
        using vela::common::StringConverter;
        vela::test::Say("error " + StringConverter::ToUtf8(e.ExceptionName()) + ": " +
                        StringConverter::ToUtf8(e.Message()));
        return 2;
    }
}
