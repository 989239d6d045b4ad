#include "HostPath.h"

#include "CommandError.h"
#include "common/StringConverter.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <string_view>
#include <system_error>
#include <vector>

#ifdef _WIN32
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

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

std::string Reason(const std::error_code& error) {
    return error == std::errc::permission_denied ? std::string("permission denied") : error.message();
}

// A name nobody else picks at the same moment: the process, a counter and a random part.
std::string UniqueName(const std::string& prefix) {
    static std::atomic<unsigned> counter{0};
    static const unsigned salt = std::random_device{}();
    return prefix + std::to_string(salt) + "-" + std::to_string(counter.fetch_add(1));
}

long ProcessId() {
#ifdef _WIN32
    return static_cast<long>(::_getpid());
#else
    return static_cast<long>(::getpid());
#endif
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

uint64_t HostPath::CheckSource(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(Native(path), error);
    if (!fs::exists(status)) {
        throw CommandError(ExitCode::notFound, "no file '" + path + "' on this computer",
                           "Give the path of a file on this computer.");
    }
    if (fs::is_directory(status)) {
        throw CommandError(ExitCode::usage, "'" + path + "' on this computer is a folder, not a file",
                           "Give the path of a file on this computer.");
    }
    std::ifstream probe(Native(path), std::ios::binary);
    if (!probe.is_open()) {
        throw CommandError(ExitCode::accessDenied,
                           "cannot read '" + path + "' on this computer: permission denied",
                           "Check the file's permissions.");
    }
    return Size(path).value_or(0);
}

void HostPath::CheckTarget(const std::string& path, bool noClobber) {
    const fs::path target = Native(path);
    fs::path folder = target.parent_path();
    if (folder.empty()) {
        folder = fs::path(".");
    }
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        throw CommandError(ExitCode::notFound,
                           "no folder '" + Utf8(folder) + "' on this computer for '" + path + "'",
                           "Create the folder first, or give another host path.");
    }
    const fs::file_status status = fs::symlink_status(target, error);
    if (fs::exists(status)) {
        if (!fs::is_regular_file(fs::status(target, error))) {
            throw CommandError(ExitCode::usage,
                               "'" + path + "' on this computer is not a regular file; it is not replaced",
                               "Give the path of a new or a regular file.");
        }
        if (noClobber) {
            throw CommandError(ExitCode::invalidName,
                               "'" + path + "' already exists on this computer (--no-clobber)",
                               "Remove it first, or leave out --no-clobber to replace it.");
        }
    }
    // The library writes a temporary file beside the target and renames it: try the same.
    const fs::path probe = folder / Native(UniqueName(".qrvctl-probe-" + std::to_string(ProcessId()) + "-"));
    {
        std::ofstream out(probe, std::ios::binary);
        if (!out.is_open()) {
            throw CommandError(ExitCode::accessDenied,
                               "cannot write into the folder '" + Utf8(folder) + "' on this computer for '" +
                                   path + "'",
                               "Check the folder's permissions, or give another host path.");
        }
    }
    fs::remove(probe, error);
}

std::string HostPath::TemporaryFolder() {
    std::error_code error;
    fs::path base = fs::temp_directory_path(error);
    if (error) {
        base = fs::path(".");
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path folder = base / Native(UniqueName("qrvctl-" + std::to_string(ProcessId()) + "-"));
        if (fs::create_directory(folder, error)) {
            return Utf8(folder);
        }
    }
    throw CommandError(ExitCode::failure,
                       "cannot make a temporary folder in '" + Utf8(base) + "': " + Reason(error));
}

void HostPath::RemoveAll(const std::string& path) {
    std::error_code error;
    fs::remove_all(Native(path), error);
}

void HostPath::RemoveTemporaryFiles(const std::string& folder) {
    const std::string prefix = ".qrv-" + std::to_string(ProcessId()) + "-";
    std::error_code error;
    for (fs::directory_iterator it(Native(folder.empty() ? "." : folder), error), end; !error && it != end;
         it.increment(error)) {
        const std::string name = Utf8(it->path().filename());
        if (name.rfind(prefix, 0) == 0 && name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
}

void HostPath::CopyTo(const std::string& path, const std::function<bool(std::string_view)>& write) {
#ifdef _WIN32
    // The file's bytes as they are: no line-end translation on the way out.
    std::fflush(stdout);
    ::_setmode(::_fileno(stdout), _O_BINARY);
#endif
    std::ifstream in(Native(path), std::ios::binary);
    std::vector<char> block(1 << 16);
    bool copied = in.is_open();
    while (copied) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        const auto got = static_cast<size_t>(in.gcount());
        copied = !in.bad() && (got == 0 || write(std::string_view(block.data(), got)));
        if (in.eof()) {
            break;
        }
    }
    if (!copied) {
        throw CommandError(ExitCode::failure, "cannot copy '" + path + "' to the standard output");
    }
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
