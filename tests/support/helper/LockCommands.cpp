// Helper subcommands around the printer access lock, one output line per step.

#include "support/helper/HelperCommand.h"

#include "common/StringConverter.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

namespace {

using vela::common::StringConverter;
using vela::kom::PrinterAccessSynchronizer;
using vela::test::Say;
using Clock = std::chrono::steady_clock;

vela::kom::ConnectedPrinter PrinterNamed(const std::string& name) {
    return {0, 0, L"", StringConverter::FromUtf8(name)};
}

vela::test::HelperCommand holdLock("hold-lock NAME MS", [](const std::vector<std::string>& args) {
    {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        Say("locked");
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoll(args[1])));
    }
    Say("released");
    return 0;
});

// Takes the lock N times, owning the marker FOLDER/held inside: "done <overlaps>".
vela::test::HelperCommand lockHammer("lock-hammer NAME N FOLDER", [](const std::vector<std::string>& args) {
    const std::filesystem::path marker = std::filesystem::path(args[2]) / "held";
    int overlaps = 0;
    for (int i = 0; i < std::stoi(args[1]); ++i) {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        std::error_code ec; // creating a folder is atomic: it fails while another holder is in
        overlaps += std::filesystem::create_directory(marker, ec) ? 0 : 1;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        std::filesystem::remove(marker, ec);
    }
    Say("done " + std::to_string(overlaps));
    return overlaps == 0 ? 0 : 3;
});

// Takes the lock, holds it 2 ms and takes it again at once for MS ms: "churning", "done <rounds>".
vela::test::HelperCommand lockChurn("lock-churn NAME MS", [](const std::vector<std::string>& args) {
    const auto until = Clock::now() + std::chrono::milliseconds(std::stoll(args[1]));
    long rounds = 0;
    while (Clock::now() < until) {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (rounds++ == 0) {
            Say("churning");
        }
    }
    Say("done " + std::to_string(rounds));
    return 0;
});

} // namespace
