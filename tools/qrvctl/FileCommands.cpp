#include "FileCommands.h"

#include "ByteText.h"
#include "GatewayProgress.h"
#include "HostPath.h"
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

// One get, with its progress; returns the size of the host file written.
uint64_t Fetch(Console& console, vela::kom::ManagedQRVDeviceGateway& gateway, const std::string& printerPath,
               const std::string& hostFile) {
    ProgressReporter reporter(console, "get " + HostPath::PrinterFileName(printerPath));
    GatewayProgress progress(gateway, reporter);
    gateway.GetFile(StringConverter::FromUtf8(printerPath), HostPath::Wide(hostFile));
    return HostPath::Size(hostFile).value_or(0);
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
    console.Result({{"path", printerFolder}, {"entries", list}}, [&](std::ostream& out) {
        table.Print(out);
        out << entries.size() << (entries.size() == 1 ? " entry" : " entries") << " in " << printerFolder
            << '\n';
    });
}

void FileCommands::Get(Console& console, PrinterSession& session, const std::string& printerPath,
                       const std::string& hostFile) {
    auto& gateway = session.Open();
    const std::string target = HostPath::IntoFolder(hostFile, HostPath::PrinterFileName(printerPath));
    const auto start = Clock::now();
    const uint64_t bytes = Fetch(console, gateway, printerPath, target);
    console.Result({{"printerPath", printerPath}, {"hostFile", target}, {"bytes", bytes}},
                   [&](std::ostream& out) {
                       out << "Copied " << printerPath << " to " << target << " (" << FormatBytes(bytes)
                           << " in " << Duration(Clock::now() - start) << ")\n";
                   });
}

void FileCommands::Put(Console& console, PrinterSession& session, const std::string& hostFile,
                       const std::string& printerPath) {
    auto& gateway = session.Open();
    std::string target = printerPath;
    if (!target.empty() && target.back() == '/') {
        target += HostPath::FileName(hostFile);
    }
    const uint64_t bytes = HostPath::Size(hostFile).value_or(0);
    const auto start = Clock::now();
    {
        ProgressReporter reporter(console, "put " + HostPath::FileName(hostFile));
        GatewayProgress progress(gateway, reporter);
        gateway.PutFile(StringConverter::FromUtf8(target), HostPath::Wide(hostFile));
    }
    console.Result({{"hostFile", hostFile}, {"printerPath", target}, {"bytes", bytes}},
                   [&](std::ostream& out) {
                       out << "Copied " << hostFile << " to " << target << " (" << FormatBytes(bytes)
                           << " in " << Duration(Clock::now() - start) << ")\n";
                   });
}

void FileCommands::Move(Console& console, PrinterSession& session, const std::string& from,
                        const std::string& to) {
    auto& gateway = session.Open();
    gateway.RenameFile(StringConverter::FromUtf8(from), StringConverter::FromUtf8(to));
    console.Result({{"from", from}, {"to", to}},
                   [&](std::ostream& out) { out << "Renamed " << from << " to " << to << '\n'; });
}

void FileCommands::Remove(Console& console, PrinterSession& session, const std::string& printerPath) {
    auto& gateway = session.Open();
    gateway.DeleteFile(StringConverter::FromUtf8(printerPath));
    console.Result({{"path", printerPath}},
                   [&](std::ostream& out) { out << "Deleted " << printerPath << '\n'; });
}

void FileCommands::DiskSpace(Console& console, PrinterSession& session) {
    auto& gateway = session.Open();
    uint64_t freeKiB = 0;
    uint64_t usedKiB = 0;
    gateway.GetDiskSpaceKB(freeKiB, usedKiB);
    console.Result({{"freeKiB", freeKiB}, {"usedKiB", usedKiB}, {"totalKiB", freeKiB + usedKiB}},
                   [&](std::ostream& out) {
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
        console.Result({{"logs", list}}, [&](std::ostream& out) {
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
    console.Result({{"logs", list}}, [&](std::ostream& out) {
        for (const auto& [hostFile, bytes] : fetched) {
            out << "Fetched " << hostFile << " (" << FormatBytes(bytes) << ")\n";
        }
        if (fetched.empty()) {
            out << "The printer has no log files.\n";
        }
    });
}

} // namespace vela::qrvctl
