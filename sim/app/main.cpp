// qrv-sim: a simulated QRV label printer on the OS channels that the library opens.
//
//   qrv-sim --name "Label Printer" --model 410 [--serial S] [--no-hid] [--trace] [--gadget]
//           [--disk-mib N]
//
// Prints "QRV_VIRTUAL_PRINTERS=<entry>" (one line) for the user to export, then serves until
// interrupted (SIGINT, SIGTERM; Ctrl+C on Windows). Meanwhile it takes line commands on standard
// input (sim/app/ControlCommand.h) and answers each with one line on standard output.
#include "sim/Simulator.h"
#include "sim/app/ControlCommand.h"
#include "sim/app/ControlInput.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

std::atomic<bool> g_interrupted{false};

extern "C" void OnSignal(int) {
    g_interrupted = true;
}

void Usage(std::FILE* out) {
    std::fprintf(out, "usage: qrv-sim [--name NAME] [--model 210|410] [--serial SERIAL] [--no-hid] [--trace] "
                      "[--gadget] [--disk-mib N]\n"
                      "  --name NAME      print-queue name the application uses (default \"Label Printer\")\n"
                      "  --model 210|410  printer model (default 410)\n"
                      "  --serial SERIAL  serial number / device id (default: derived from the name)\n"
                      "  --no-hid         no HID channel (no status reports)\n"
                      "  --trace          log every frame to standard error\n"
                      "  --gadget         serve /dev/g_printer0 and /dev/hidg0 (USB gadget, VM harness)\n"
                      "  --disk-mib N     disk capacity in MiB (default 64; large puts need more)\n"
                      "While it runs, each line on standard input is a command that changes the printer;\n"
                      "each gets one answer line (\"ok\", a value, or \"error: ...\") on standard output:\n"
                      "  door open|closed, cassette present|absent, cutter ok|jammed, battery 0..5,\n"
                      "  power external|battery, charging on|off\n"
                      "  set FIELD VALUE  a status field by its wire value; FIELD is one of power door\n"
                      "                   cassette printhead cutter label memory print external battery\n"
                      "                   charging counter (e.g. \"set label 2\": label jammed)\n"
                      "  special          send the special status report\n"
                      "  status           print every field as FIELD=VALUE\n"
                      "  help             list the commands\n"
                      "Every change is reported to the host as a status event (and a print interrupt\n"
                      "where it is one), as the printer does.\n");
}

} // namespace

int main(int argc, char** argv) {
    vela::sim::Simulator::Options options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "qrv-sim: %s needs a value\n", name);
                return nullptr;
            }
            return argv[++i];
        };
        if (arg == "--name" || arg == "--model" || arg == "--serial") {
            const char* v = value(arg.c_str());
            if (v == nullptr) {
                return 2;
            }
            (arg == "--name" ? options.name : arg == "--model" ? options.model : options.serial) = v;
        } else if (arg == "--disk-mib") {
            const char* v = value(arg.c_str());
            if (v == nullptr) {
                return 2;
            }
            char* end = nullptr;
            const unsigned long long mib = std::strtoull(v, &end, 10);
            if (*v < '0' || *v > '9' || *end != '\0' || mib == 0 || mib > (1ull << 20)) {
                std::fprintf(stderr, "qrv-sim: --disk-mib needs a whole number of MiB (1 to 1048576)\n");
                return 2;
            }
            options.printer.diskCapacity = uint64_t{mib} << 20;
        } else if (arg == "--no-hid") {
            options.hid = false;
        } else if (arg == "--trace") {
            options.trace = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
        } else if (arg == "--gadget") {
            options.gadget = true;
        } else if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        } else {
            std::fprintf(stderr, "qrv-sim: unknown argument '%s'\n", arg.c_str());
            Usage(stderr);
            return 2;
        }
    }

    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    try {
        vela::sim::Simulator simulator(options);
        if (options.gadget) {
            // On the gadget the printer appears on the host's USB bus; nothing to export.
            std::printf("qrv-sim: serving %s on %s and %s\n", options.name.c_str(),
                        options.gadgetPrinterNode.c_str(),
                        options.hid ? options.gadgetHidNode.c_str() : "(no HID)");
        } else {
            std::printf("QRV_VIRTUAL_PRINTERS=%s\n", simulator.EntryText().c_str());
        }
        std::fflush(stdout);
        vela::sim::ControlInput input;
        while (!g_interrupted) {
            if (auto line = input.WaitLine(std::chrono::milliseconds(100))) {
                const std::string reply = vela::sim::ControlCommand::Apply(simulator.Printer(), *line);
                std::printf("%s\n", reply.c_str());
                std::fflush(stdout);
            }
        }
        simulator.Stop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qrv-sim: %s\n", e.what());
        return 1;
    }
    return 0;
}
