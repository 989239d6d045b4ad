#include "FileCommands.h"

#include "ByteText.h"
#include "CommandError.h"
#include "GatewayProgress.h"
#include "HelpText.h"
#include "HostPath.h"
#include "InterruptSignal.h"
#include "TextTable.h"
#include "common/StringConverter.h"

#include <chrono>
#include <cstdio>

namespace vela::qrvctl {

namespace hc = vela::printer::communication;
using vela::common::StringConverter;

namespace {

using Clock = std::chrono::steady_clock;

std::string Duration(Clock::duration elapsed) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(elapsed).count());
    return text;
}

// Files larger than this are first looked for on the printer: a duplicate name would be refused
// only after the whole file was sent. (A listing costs the printer's fixed 1 s.)
constexpr uint64_t kLookFirstBytes = 4u << 20;

std::string FolderOf(const std::string& printerPath) {
    const auto slash = printerPath.find_last_of('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : printerPath.substr(0, slash);
}

// One get, with its progress; returns the size of the host file written. Ctrl+C cancels it; a
// second Ctrl+C quits at once and takes the library's temporary file along.
uint64_t Fetch(Console& console, vela::kom::ManagedQRVDeviceGateway& gateway, const std::string& printerPath,
               const std::string& hostFile) {
    const std::string folder = HostPath::Absolute(hostFile);
    InterruptSignal::Cleanup cleanup(
        [folder] { HostPath::RemoveTemporaryFiles(folder.substr(0, folder.find_last_of("/\\"))); });
    ProgressReporter reporter(console, "get " + HostPath::PrinterFileName(printerPath));
    GatewayProgress progress(gateway, reporter);
    InterruptSignal::Phase phase(InterruptSignal::Mode::transfer, &gateway);
    gateway.GetFile(StringConverter::FromUtf8(printerPath), HostPath::Wide(hostFile));
    return HostPath::Size(hostFile).value_or(0);
}

bool ExistsOnPrinter(vela::kom::ManagedQRVDeviceGateway& gateway, const std::string& printerPath) {
    const std::wstring name = StringConverter::FromUtf8(HostPath::PrinterFileName(printerPath));
    for (const auto& entry : gateway.GetFiles(StringConverter::FromUtf8(FolderOf(printerPath)))) {
        if (entry.Name() == name) {
            return true;
        }
    }
    return false;
}

} // namespace

void FileCommands::List(Console& console, PrinterSession& session, const std::string& printerFolder) {
    auto& gateway = session.Open();
    const auto entries = gateway.GetFiles(StringConverter::FromUtf8(printerFolder));
    nlohmann::json list = nlohmann::json::array();
    TextTable table;
    for (const auto& entry : entries) {
        const bool folder = entry.Type() == hc::FileType::directory;
        const std::string name = StringConverter::ToUtf8(entry.Name());
        list.push_back({{"name", name}, {"type", folder ? "directory" : "file"}, {"size", entry.Size()}});
        table.AddRow({folder ? "folder" : "file",
                      folder ? std::string("-")
                             : FormatBytes(static_cast<uint64_t>(entry.Size() < 0 ? 0 : entry.Size())),
                      folder ? name + "/" : name});
    }
    console.Result({{"path", printerFolder}, {"entries", list}}, [&](TextWriter& out) {
        table.Print(out);
        out << entries.size() << (entries.size() == 1 ? " entry" : " entries") << " in " << printerFolder
            << '\n';
    });
}

void FileCommands::Get(Console& console, PrinterSession& session, const std::string& printerPath,
                       const std::string& hostFile, bool noClobber) {
    const bool toOutput = hostFile == "-";
    if (toOutput && console.Json()) {
        throw CommandError(ExitCode::usage,
                           "`get PRINTER_PATH -` writes the file to standard output: no --json there");
    }
    const std::string name = HostPath::PrinterFileName(printerPath);
    std::string temporaryFolder;
    const std::string target = toOutput ? std::string() : HostPath::IntoFolder(hostFile, name);
    if (!toOutput) {
        HostPath::CheckTarget(target, noClobber);
    }
    auto& gateway = session.Open();
    if (toOutput) {
        temporaryFolder = HostPath::TemporaryFolder();
    }
    struct RemoveFolder {
        std::string path;
        ~RemoveFolder() {
            if (!path.empty()) {
                HostPath::RemoveAll(path);
            }
        }
    } removeFolder{temporaryFolder};
    InterruptSignal::Cleanup cleanup([temporaryFolder] {
        if (!temporaryFolder.empty()) {
            HostPath::RemoveAll(temporaryFolder);
        }
    });
    const std::string written = toOutput ? temporaryFolder + "/" + (name.empty() ? "file" : name) : target;
    const auto start = Clock::now();
    const uint64_t bytes = Fetch(console, gateway, printerPath, written);
    if (toOutput) {
        HostPath::CopyTo(written, [&console](std::string_view bytes) { return console.Output(bytes); });
        console.NoticeLine("Copied " + printerPath + " to standard output (" + FormatBytes(bytes) + " in " +
                           Duration(Clock::now() - start) + ")");
        return;
    }
    console.Result(
        {{"printerPath", printerPath}, {"hostFile", target}, {"bytes", bytes}}, [&](TextWriter& out) {
            out << HelpText::Fit("Copied " + printerPath + " to " + target + " (" + FormatBytes(bytes) +
                                     " in " + Duration(Clock::now() - start) + ")",
                                 console.Columns())
                << "\n";
        });
}

void FileCommands::Put(Console& console, PrinterSession& session, const std::string& hostFile,
                       const std::string& printerPath, bool force) {
    const uint64_t bytes = HostPath::CheckSource(hostFile);
    std::string target = printerPath;
    if (!target.empty() && target.back() == '/') {
        target += HostPath::FileName(hostFile);
    }
    auto& gateway = session.Open();
    if (force) {
        if (RemoveIfPresent(gateway, target)) {
            console.ErrorLine("Replacing " + target + " (--force): the printer's old file is deleted");
        }
    } else if (bytes > kLookFirstBytes && ExistsOnPrinter(gateway, target)) {
        throw CommandError(ExitCode::invalidName, "'" + target + "' already exists on the printer",
                           "`--force` replaces it, or choose another name.");
    }
    const auto start = Clock::now();
    {
        ProgressReporter reporter(console, "put " + HostPath::FileName(hostFile));
        GatewayProgress progress(gateway, reporter);
        InterruptSignal::Phase phase(InterruptSignal::Mode::transfer, &gateway);
        gateway.PutFile(StringConverter::FromUtf8(target), HostPath::Wide(hostFile));
    }
    console.Result({{"hostFile", hostFile}, {"printerPath", target}, {"bytes", bytes}}, [&](TextWriter& out) {
        out << HelpText::Fit("Copied " + hostFile + " to " + target + " (" + FormatBytes(bytes) + " in " +
                                 Duration(Clock::now() - start) + ")",
                             console.Columns())
            << "\n";
    });
}

bool FileCommands::RemoveIfPresent(vela::kom::ManagedQRVDeviceGateway& gateway,
                                   const std::string& printerPath) {
    try {
        gateway.DeleteFile(StringConverter::FromUtf8(printerPath));
        return true;
    } catch (const hc::FileNotFoundException&) {
        return false;
    } catch (const hc::PrinterCommunicationException& e) {
        // Some answers for a missing file come as a communication error naming the reason.
        if (std::string(e.what()).find("'Wrong file name'") != std::string::npos) {
            return false;
        }
        throw;
    }
}

void FileCommands::Move(Console& console, PrinterSession& session, const std::string& from,
                        const std::string& to) {
    auto& gateway = session.Open();
    gateway.RenameFile(StringConverter::FromUtf8(from), StringConverter::FromUtf8(to));
    console.Result({{"from", from}, {"to", to}},
                   [&](TextWriter& out) { out << "Renamed " << from << " to " << to << '\n'; });
}

void FileCommands::Remove(Console& console, PrinterSession& session, const std::string& printerPath) {
    auto& gateway = session.Open();
    gateway.DeleteFile(StringConverter::FromUtf8(printerPath));
    console.Result({{"path", printerPath}},
                   [&](TextWriter& out) { out << "Deleted " << printerPath << '\n'; });
}

void FileCommands::DiskSpace(Console& console, PrinterSession& session) {
    auto& gateway = session.Open();
    uint64_t freeKiB = 0;
    uint64_t usedKiB = 0;
    gateway.GetDiskSpaceKB(freeKiB, usedKiB);
    console.Result({{"freeKiB", freeKiB}, {"usedKiB", usedKiB}, {"totalKiB", freeKiB + usedKiB}},
                   [&](TextWriter& out) {
                       TextTable table;
                       table.AddRow({"Free", FormatBytes(freeKiB << 10)});
                       table.AddRow({"Used", FormatBytes(usedKiB << 10)});
                       table.AddRow({"Total", FormatBytes((freeKiB + usedKiB) << 10)});
                       table.Print(out);
                   });
}

void FileCommands::Logs(Console& console, PrinterSession& session, const std::string& fetchFolder) {
    auto& gateway = session.Open();
    const auto logs = gateway.GetLogFiles();
    if (fetchFolder.empty()) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& log : logs) {
            list.push_back(StringConverter::ToUtf8(log));
        }
        console.Result({{"logs", list}}, [&](TextWriter& out) {
            for (const auto& log : logs) {
                out << StringConverter::ToUtf8(log) << '\n';
            }
            if (logs.empty()) {
                out << "The printer has no log files.\n";
            }
        });
        return;
    }
    HostPath::CreateFolder(fetchFolder);
    nlohmann::json list = nlohmann::json::array();
    std::vector<std::pair<std::string, uint64_t>> fetched;
    for (const auto& log : logs) {
        const std::string printerPath = StringConverter::ToUtf8(log);
        const std::string hostFile =
            HostPath::IntoFolder(fetchFolder, HostPath::PrinterFileName(printerPath));
        const uint64_t bytes = Fetch(console, gateway, printerPath, hostFile);
        list.push_back({{"printerPath", printerPath}, {"hostFile", hostFile}, {"bytes", bytes}});
        fetched.emplace_back(hostFile, bytes);
    }
    console.Result({{"logs", list}}, [&](TextWriter& out) {
        for (const auto& [hostFile, bytes] : fetched) {
            out << "Fetched " << hostFile << " (" << FormatBytes(bytes) << ")\n";
        }
        if (fetched.empty()) {
            out << "The printer has no log files.\n";
        }
    });
}

} // namespace vela::qrvctl
