// Helper subcommands that drive a printer from a second process. The fixed pauses are instant, so
// that the processes spend their time inside transactions, where they contend for the lock.

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

// Quiet, with instant pauses, on the printer at CHANNEL named NAME.
vela::kom::ConnectedPrinter QuietOn(const std::string& channel, const std::string& name) {
    vela::common::Log::SetLevel(-1);
    vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
    return {0x0922, 0x0025, StringConverter::FromUtf8(channel), StringConverter::FromUtf8(name)};
}

// ROUNDS status queries, listings and puts in an order drawn from SEED: "done <ok> <busy> <other>",
// exit 0 when no call failed other than busy ("failed <kind>: <message>").
vela::test::HelperCommand
    hammer("hammer CHANNEL NAME ROUNDS SEED FOLDER", [](const std::vector<std::string>& args) -> int {
        vela::kom::QRVDevice device(QuietOn(args[0], args[1]));
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
                                         vela::kom::QRVDevice device(QuietOn(args[0], args[1]));
                                         Say("running");
                                         for (;;) {
                                             try {
                                                 (void)device.GetStatus();
                                             } catch (const vela::common::Exception&) {
                                                 // only a kill ends this loop
                                             }
                                         }
                                     });

} // namespace
