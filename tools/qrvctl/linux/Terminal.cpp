#include "Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace vela::qrvctl {

namespace {
int Descriptor(Terminal::Stream stream) {
    return stream == Terminal::Stream::output ? STDOUT_FILENO : STDERR_FILENO;
}
} // namespace

bool Terminal::IsTerminal(Stream stream) {
    return ::isatty(Descriptor(stream)) == 1;
}

int Terminal::Columns(Stream stream) {
    winsize size{};
    if (::ioctl(Descriptor(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    return 80;
}

void Terminal::Prepare() {}

} // namespace vela::qrvctl
