// Helper subcommands around the printer access lock, for tests that need a second process:
//
//   hold-lock NAME MS          takes the lock, prints "locked", holds it for MS ms or until its
//                              standard input closes, releases it, prints "released", exits 0.
//   try-lock NAME              prints "trying" as the attempt starts, then "locked <ms>" (exit 0)
//                              or "busy <ms> <message>" (exit 1), <ms> being the time it took.
//   lock-hammer NAME N FOLDER  takes and releases the lock N times; while it holds it, it owns the
//                              marker FOLDER/held (created exclusively). Prints "done <overlaps>",
//                              exit 0 when no other holder was ever seen inside the lock.
//   lock-churn NAME MS         for MS ms takes the lock, holds it 2 ms, releases it and takes it
//                              again at once; prints "churning" after the first round, then
//                              "done <rounds>".
//
// Any other failure prints "error <kind>: <message>" and exits 2.

#include "support/helper/HelperCommand.h"

#include "common/Exception.h"
#include "common/StringConverter.h"
#include "kom/QRVException.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
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

long long MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

int Failed(const vela::common::Exception& e) {
    Say("error " + StringConverter::ToUtf8(e.ExceptionName()) + ": " + StringConverter::ToUtf8(e.Message()));
    return 2;
}

// Ends the process without running static destructors: the stdin watcher may still be blocked
// inside the C library's stdin, which a normal exit would have to lock.
[[noreturn]] void Finish(int code) {
    std::fflush(stdout);
    std::_Exit(code);
}

// Becomes true when the parent closes our standard input (or dies).
struct StdinWatch {
    std::mutex mutex;
    std::condition_variable closed;
    bool isClosed = false;
};

std::shared_ptr<StdinWatch> WatchStdin() {
    auto watch = std::make_shared<StdinWatch>();
    std::thread([watch] {
        while (std::fgetc(stdin) != EOF) {
        }
        std::lock_guard<std::mutex> lock(watch->mutex);
        watch->isClosed = true;
        watch->closed.notify_all();
    }).detach();
    return watch;
}

vela::test::HelperCommand holdLock("hold-lock NAME MS", [](const std::vector<std::string>& args) -> int {
    const auto holdFor = std::chrono::milliseconds(std::stoll(args[1]));
    auto watch = WatchStdin();
    try {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        Say("locked");
        std::unique_lock<std::mutex> wait(watch->mutex);
        watch->closed.wait_for(wait, holdFor, [&] { return watch->isClosed; });
    } catch (const vela::common::Exception& e) {
        Finish(Failed(e));
    }
    Say("released");
    Finish(0);
});

vela::test::HelperCommand tryLock("try-lock NAME", [](const std::vector<std::string>& args) -> int {
    const auto start = Clock::now();
    Say("trying"); // a process start under wine may take longer than the caller's hold
    try {
        PrinterAccessSynchronizer lock(PrinterNamed(args[0]));
        Say("locked " + std::to_string(MsSince(start)));
        return 0;
    } catch (const vela::kom::PrinterBuzyException& e) {
        Say("busy " + std::to_string(MsSince(start)) + " " + StringConverter::ToUtf8(e.Message()));
        return 1;
    } catch (const vela::common::Exception& e) {
        return Failed(e);
    }
});

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
