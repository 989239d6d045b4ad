// Helper subcommands that drive a printer from a second process, for the contention tests. The
// fixed pauses are instant, so that the processes spend their time inside transactions, where they
// contend for the lock.

#include "support/helper/HelperCommand.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/Pause.h"
#include "common/StringConverter.h"
#include "kom/QRVException.h"
#include "kom/connection/QRVDevice.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

namespace {

using vela::common::StringConverter;
using vela::test::Say;

vela::kom::ConnectedPrinter Printer(const std::string& channel, const std::string& name) {
    vela::kom::ConnectedPrinter printer;
    printer.vendorId = 0x0922;
    printer.productId = 0x0025;
    printer.devicePath = StringConverter::FromUtf8(channel);
    printer.printerName = StringConverter::FromUtf8(name);
    return printer;
}

void QuietAndInstant() {
    vela::common::Log::SetLevel(-1);
    vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
}

// ROUNDS status queries, listings and small puts in an order drawn from SEED (which also names
// this process's files): "done <ok> <busy> <other>", exit 0 when each one succeeded or met
// PrinterBuzyException; any other failure is said as "failed <kind>: <message>".
vela::test::HelperCommand
    hammer("hammer CHANNEL NAME ROUNDS SEED FOLDER", [](const std::vector<std::string>& args) -> int {
        QuietAndInstant();
        vela::kom::QRVDevice device(Printer(args[0], args[1]));
        const int rounds = std::stoi(args[2]);
        std::mt19937 random(static_cast<uint32_t>(std::stoul(args[3])));
        const std::string seed = args[3];
        const std::string hostFile = args[4] + "/hammer-" + seed + ".bin";
        std::ofstream(hostFile, std::ios::binary) << "hammered by " << seed;

        int ok = 0, busy = 0, other = 0;
        for (int i = 0; i < rounds; ++i) {
            try {
                switch (random() % 3) {
                case 0:
                    (void)device.GetStatus();
                    break;
                case 1:
                    (void)device.GetFolderContent(L"/mnt/data/images");
                    break;
                default: {
                    const std::wstring target = L"/mnt/data/images/h" + StringConverter::FromUtf8(seed) +
                                                L"-" + std::to_wstring(i) + L".bin";
                    const int32_t result = device.PutFile(target, StringConverter::FromUtf8(hostFile));
                    if (result != 0) {
                        throw vela::kom::QRVException(L"put result " + std::to_wstring(result), L"hammer");
                    }
                    break;
                }
                }
                ++ok;
            } catch (const vela::kom::PrinterBuzyException&) {
                ++busy;
            } catch (const vela::common::Exception& e) {
                ++other;
                Say("failed " + StringConverter::ToUtf8(e.ExceptionName()) + ": " +
                    StringConverter::ToUtf8(e.Message()));
            }
        }
        Say("done " + std::to_string(ok) + " " + std::to_string(busy) + " " + std::to_string(other));
        return other == 0 ? 0 : 1;
    });

// "running", then status queries without a pause until it is killed (mid-transaction, at best).
vela::test::HelperCommand statusLoop("status-loop CHANNEL NAME",
                                     [](const std::vector<std::string>& args) -> int {
                                         QuietAndInstant();
                                         vela::kom::QRVDevice device(Printer(args[0], args[1]));
                                         Say("running");
                                         for (;;) {
                                             try {
                                                 (void)device.GetStatus();
                                             } catch (const vela::common::Exception&) {
                                                 // Only a kill ends this loop; a failure is the parent's
                                                 // business, not ours.
                                             }
                                         }
                                     });

} // namespace
