#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

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
    // Checks, before the printer is touched, that `path` is a file this user can read; returns
    // its size. Throws CommandError naming the host path: notFound, usage (a folder),
    // accessDenied.
    static uint64_t CheckSource(const std::string& path);
    // Checks that a get may write `path`: its folder exists and takes a new file, and `path` is
    // no folder or device (a file is replaced unless `noClobber`). Throws CommandError naming the
    // host path: notFound, accessDenied, usage, invalidName (exists with `noClobber`).
    static void CheckTarget(const std::string& path, bool noClobber);
    // A new private folder for temporary files; throws CommandError when none can be made.
    static std::string TemporaryFolder();
    // Removes a folder and what it holds; never throws.
    static void RemoveAll(const std::string& path);
    // Removes the library's temporary files of this process in `folder` (a get cut short before
    // it could remove its own); never throws.
    static void RemoveTemporaryFiles(const std::string& folder);
    // Passes the file's bytes to `write` (the output stream) block by block; throws CommandError
    // when it cannot be read or `write` fails.
    static void CopyTo(const std::string& path, const std::function<bool(std::string_view)>& write);
    // Creates the folder and its parents; throws CommandError (accessDenied / failure).
    static void CreateFolder(const std::string& path);
    // The last component of a printer path ("/mnt/data/images/a.png" -> "a.png").
    static std::string PrinterFileName(const std::string& printerPath);
    // The last component of a host path.
    static std::string FileName(const std::string& path);
};

} // namespace vela::qrvctl
