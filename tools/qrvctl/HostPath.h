#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vela::qrvctl {

// Host file names as the tool takes them: UTF-8 text from the command line (on Windows taken
// from the wide command line), handed to the library as wide text.
class HostPath {
public:
    // The wide form the gateway takes.
    static std::wstring Wide(const std::string& path);
    // `path`, or `path`/`name` when `path` is an existing folder.
    static std::string IntoFolder(const std::string& path, const std::string& name);
    // The absolute form with the system's separators (the update needs a folder part).
    static std::string Absolute(const std::string& path);
    static bool IsFile(const std::string& path);
    static std::optional<uint64_t> Size(const std::string& path);
    // Creates the folder and its parents; throws CommandError (accessDenied / failure).
    static void CreateFolder(const std::string& path);
    // The last component of a printer path ("/mnt/data/images/a.png" -> "a.png").
    static std::string PrinterFileName(const std::string& printerPath);
    // The last component of a host path.
    static std::string FileName(const std::string& path);
};

} // namespace vela::qrvctl
