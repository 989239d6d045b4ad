#include "common/SystemError.h"

#include "common/StringConverter.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

namespace vela::common {

uint32_t LastSystemError() {
    return static_cast<uint32_t>(errno);
}
void SetLastSystemError(uint32_t code) {
    errno = static_cast<int>(code);
}

namespace {
// strerror_r comes in two flavours; overloads pick whichever glibc declared.
[[maybe_unused]] const char* Pick(int result, const char* buffer) {
    return result == 0 ? buffer : "";
}
[[maybe_unused]] const char* Pick(const char* result, const char*) {
    return result != nullptr ? result : "";
}
} // namespace

std::wstring SystemErrorText(uint32_t code) {
    if (code > static_cast<uint32_t>(INT32_MAX)) {
        return std::wstring();
    }
    char buffer[256] = {};
    int saved = errno;
    std::string text = Pick(strerror_r(static_cast<int>(code), buffer, sizeof buffer), buffer);
    errno = saved;
    // glibc invents "Unknown error N" for codes it has no text for: that is no text.
    if (text.rfind("Unknown error", 0) == 0) {
        return std::wstring();
    }
    size_t b = text.find_first_not_of(" \t\r\n");
    size_t e = text.find_last_not_of(" \t\r\n");
    return b == std::string::npos ? std::wstring() : StringConverter::FromUtf8(text.substr(b, e - b + 1));
}

bool IsValidNativeHandle(NativeHandle handle) {
    return handle >= 0;
}

bool CloseNativeHandle(NativeHandle handle) {
    return ::close(handle) == 0;
}

} // namespace vela::common
