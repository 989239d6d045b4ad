// Helper subcommands around the printer access lock, for tests that need a second process. Each
// says what it does on its standard output, one line per step; a failure other than a busy lock
// prints "error <kind>: <message>" and exits 2.

#include "support/helper/HelperCommand.h"

#include "common/Exception.h"
#include "common/StringConverter.h"
#include "kom/QRVException.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

namespace {

using vela::common::StringConverter;
using vela::kom::ConnectedPrinter;
using vela::kom::PrinterAccessSynchronizer;
using vela::test::Say;
using Clock = std::chrono::steady_clock;

ConnectedPrinter PrinterNamed(const std::string& name) {
    ConnectedPrinter printer;
    printer.printerName = StringConverter::FromUtf8(name);
    return printer;
}

int Failed(const vela::common::Exception& e) {
    Say("error " + StringConverter::ToUtf8(e.ExceptionName()) + ": " + StringConverter::ToUtf8(e.Message()));
    return 2;
}

vela::test::HelperCommand holdLock("hold-lock NAME MS", [](const std::vector<std::string>& args) -> int {
    try {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        Say("locked");
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoll(args[1])));
    } catch (const vela::common::Exception& e) {
        return Failed(e);
    }
    Say("released");
    return 0;
});

// Takes and releases the lock N times, owning the marker FOLDER/held while it holds it; "done
// <overlaps>", exit 0 when no other holder was ever seen inside.
vela::test::HelperCommand lockHammer("lock-hammer NAME N FOLDER",
                                     [](const std::vector<std::string>& args) -> int {
                                         const auto printer = PrinterNamed(args[0]);
                                         const int rounds = std::stoi(args[1]);
                                         const std::filesystem::path marker =
                                             std::filesystem::path(args[2]) / "held";
                                         int overlaps = 0;
                                         try {
                                             for (int i = 0; i < rounds; ++i) {
                                                 PrinterAccessSynchronizer lock(printer);
                                                 // Creating a folder is atomic on every system: it fails when
                                                 // another holder is in.
                                                 std::error_code ec;
                                                 if (!std::filesystem::create_directory(marker, ec)) {
                                                     ++overlaps;
                                                 }
                                                 std::this_thread::sleep_for(std::chrono::microseconds(500));
                                                 std::filesystem::remove(marker, ec);
                                             }
                                         } catch (const vela::kom::PrinterBuzyException& e) {
                                             Say("busy " + StringConverter::ToUtf8(e.Message()));
                                             return 1;
                                         } catch (const vela::common::Exception& e) {
                                             return Failed(e);
                                         }
                                         Say("done " + std::to_string(overlaps));
                                         return overlaps == 0 ? 0 : 3;
                                     });

// Takes the lock, holds it 2 ms and takes it again at once for MS ms: "churning", "done <rounds>".
vela::test::HelperCommand lockChurn("lock-churn NAME MS", [](const std::vector<std::string>& args) -> int {
    const auto printer = PrinterNamed(args[0]);
    const auto until = Clock::now() + std::chrono::milliseconds(std::stoll(args[1]));
    long rounds = 0;
    try {
        while (Clock::now() < until) {
            PrinterAccessSynchronizer lock(printer);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (rounds++ == 0) {
                Say("churning");
            }
        }
    } catch (const vela::kom::PrinterBuzyException& e) {
        Say("busy " + StringConverter::ToUtf8(e.Message()));
        return 1;
    } catch (const vela::common::Exception& e) {
        return Failed(e);
    }
    Say("done " + std::to_string(rounds));
    return 0;
});

} // namespace
