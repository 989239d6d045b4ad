#include "HostPath.h"

#include "CommandError.h"
#include "common/StringConverter.h"

#include <filesystem>
#include <system_error>

namespace vela::qrvctl {

namespace fs = std::filesystem;
using vela::common::StringConverter;

namespace {
fs::path Native(const std::string& path) {
    return fs::u8path(path);
}
std::string Utf8(const fs::path& path) {
    return path.u8string();
}
} // namespace

std::wstring HostPath::Wide(const std::string& path) {
    return StringConverter::FromUtf8(path);
}

std::string HostPath::IntoFolder(const std::string& path, const std::string& name) {
    std::error_code error;
    if (!name.empty() && fs::is_directory(Native(path), error)) {
        return Utf8(Native(path) / Native(name));
    }
    return path;
}

std::string HostPath::Absolute(const std::string& path) {
    std::error_code error;
    fs::path absolute = fs::absolute(Native(path), error);
    if (error) {
        return path;
    }
    return Utf8(absolute.lexically_normal().make_preferred());
}

bool HostPath::IsFile(const std::string& path) {
    std::error_code error;
    return fs::is_regular_file(Native(path), error);
}

std::optional<uint64_t> HostPath::Size(const std::string& path) {
    std::error_code error;
    const auto size = fs::file_size(Native(path), error);
    if (error) {
        return std::nullopt;
    }
    return static_cast<uint64_t>(size);
}

void HostPath::CreateFolder(const std::string& path) {
    std::error_code error;
    fs::create_directories(Native(path), error);
    if (error) {
        throw CommandError(error == std::errc::permission_denied ? ExitCode::accessDenied : ExitCode::failure,
                           "cannot create the folder '" + path + "': " + error.message());
    }
}

std::string HostPath::PrinterFileName(const std::string& printerPath) {
    const auto slash = printerPath.find_last_of('/');
    return slash == std::string::npos ? printerPath : printerPath.substr(slash + 1);
}

std::string HostPath::FileName(const std::string& path) {
    return Utf8(Native(path).filename());
}

} // namespace vela::qrvctl
