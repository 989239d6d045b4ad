#include "Terminal.h"

#include <cstdio>
#include <io.h>
#include <windows.h>

namespace vela::qrvctl {

namespace {
std::FILE* File(Terminal::Stream stream) {
    return stream == Terminal::Stream::output ? stdout : stderr;
}
} // namespace

bool Terminal::IsTerminal(Stream stream) {
    return _isatty(_fileno(File(stream))) != 0;
}

int Terminal::Columns(Stream stream) {
    HANDLE handle = ::GetStdHandle(stream == Stream::output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (handle != INVALID_HANDLE_VALUE && ::GetConsoleScreenBufferInfo(handle, &info)) {
        const int columns = info.srWindow.Right - info.srWindow.Left + 1;
        if (columns > 0) {
            return columns;
        }
    }
    return 80;
}

void Terminal::Prepare() {
    // Printer paths, queue names and file names are UTF-8 inside the tool.
    ::SetConsoleOutputCP(CP_UTF8);
}

} // namespace vela::qrvctl
