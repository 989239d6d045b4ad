#include "ChannelAccess.h"

#include "common/StringConverter.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace vela::qrvctl {

std::optional<AccessProblem> CheckChannelAccess(const std::wstring& devicePath) {
    if (devicePath.empty()) {
        return std::nullopt;
    }
    const std::string path = vela::common::StringConverter::ToUtf8(devicePath);
    if (::access(path.c_str(), R_OK | W_OK) == 0) {
        return std::nullopt;
    }
    const int error = errno;
    return AccessProblem{path, error == EACCES ? std::string("permission denied") : std::strerror(error)};
}

bool ChannelPresent(const std::wstring& devicePath) {
    struct stat info {};
    return ::stat(vela::common::StringConverter::ToUtf8(devicePath).c_str(), &info) == 0;
}

} // namespace vela::qrvctl
