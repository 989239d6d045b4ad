#include "DemoCommand.h"
#include "HelpText.h"

#include "ByteText.h"
#include "InterruptSignal.h"
#include "kom/discovery/QRVPrinters.h"
#include "sim/Simulator.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

namespace vela::qrvctl {

namespace fs = std::filesystem;

namespace {

// The narration is written as paragraphs: the lines of one are joined and folded to the terminal
// like the help (80 columns when it is unknown); blank lines stay.
std::string Reflow(const std::string& text, int columns) {
    std::string joined;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool inner =
            text[i] == '\n' && i > 0 && i + 1 < text.size() && text[i - 1] != '\n' && text[i + 1] != '\n';
        joined += inner ? ' ' : text[i];
    }
    return HelpText::Fit(joined, columns);
}

using Clock = std::chrono::steady_clock;
constexpr const char* kPrinterName = "QRV Demo Printer";
constexpr int kSteps = 9;

// A step's command failed: the demo stops there.
struct StepFailed {
    int code;
};

// The demo's scratch folder on the host, removed at the end.
class ScratchFolder {
public:
    ScratchFolder() {
        std::random_device random;
        m_path = fs::temp_directory_path() / ("qrv-demo-" + std::to_string(random() % 1000000));
        fs::create_directories(m_path);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string File(const std::string& name) const { return (m_path / name).u8string(); }

private:
    fs::path m_path;
};

void WriteBytes(const std::string& path, size_t size, uint32_t seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (auto& byte : bytes) {
        byte = static_cast<char>(generator() & 0xFF);
    }
    std::ofstream(fs::u8path(path), std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string ReadBytes(const std::string& path) {
    std::ifstream in(fs::u8path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A command line as a user would type it.
std::string Shown(const std::vector<std::string>& arguments) {
    std::string line = "$ qrvctl";
    for (const auto& argument : arguments) {
        const bool plain =
            !argument.empty() && argument.find_first_of(" '\"$\\*?&;|<>()") == std::string::npos;
        line += " " + (plain ? argument : "'" + argument + "'");
    }
    return line;
}

class Demo {
public:
    Demo(Console& console, const DemoCommand::RunLine& runLine, vela::sim::Simulator& printer)
        : m_console(console), m_runLine(runLine), m_printer(printer) {}

    void Step(int number, const std::string& title, const std::string& why) {
        TextWriter text;
        text << "\n== " << number << "/" << kSteps << "  " << title << "\n"
             << Reflow(why, m_console.Columns()) << "\n";
        m_console.Output(text.Text());
    }

    void Command(std::vector<std::string> arguments) {
        if (m_needsPrinterOption) {
            arguments.insert(arguments.begin(), {"--printer", kPrinterName});
        }
        m_console.Output(Shown(arguments) + "\n");
        const int code = m_runLine(arguments);
        if (code != 0) {
            throw StepFailed{code};
        }
    }

    void Say(const std::string& text) { m_console.Output(Reflow(text, m_console.Columns()) + "\n"); }

    // Other printers attached besides the simulator: name it on every command line.
    void NameThePrinterWhenNeeded() {
        m_needsPrinterOption = vela::kom::QRVPrinters().ListPrinters().size() > 1;
    }

    // While `status --watch` runs on this thread, another plays the printer's user: it changes
    // the simulated printer's state through the simulator's API, then presses Ctrl+C.
    void WatchWhileThePrinterChanges() {
        std::atomic<bool> watchEnded{false};
        auto act = [&](std::chrono::milliseconds wait, const std::string& what,
                       const std::function<void()>& change) {
            std::this_thread::sleep_for(wait);
            if (watchEnded) {
                return false;
            }
            m_console.ErrorLine("   [demo] " + what);
            change();
            return true;
        };
        auto& engine = m_printer.Printer();
        using Fields = vela::sim::StatusFields;
        std::thread user([&] {
            const auto beat = std::chrono::milliseconds(1500);
            act(std::chrono::milliseconds(2500), "a label starts printing",
                [&] { engine.ModifyStatus([](Fields& f) { f.print = 1; }); }) &&
                act(beat, "someone opens the cassette door in the middle of the print",
                    [&] {
                        engine.ModifyStatus([](Fields& f) {
                            f.door = 1;
                            f.print = 2;
                        });
                    }) &&
                act(beat, "the door is closed again and printing goes on",
                    [&] {
                        engine.ModifyStatus([](Fields& f) {
                            f.door = 0;
                            f.print = 1;
                        });
                    }) &&
                act(beat, "the charger is plugged in", [&] { engine.SetExternalPower(true, true); }) &&
                act(beat, "Ctrl+C", [] {
                    // Only a running watch catches it; otherwise it would end the demo itself.
                    if (InterruptSignal::Active()) {
                        std::raise(SIGINT);
                    }
                });
        });
        try {
            Command({"status", "--watch"});
        } catch (...) {
            watchEnded = true;
            user.join();
            throw;
        }
        watchEnded = true;
        user.join();
    }

private:
    Console& m_console;
    const DemoCommand::RunLine& m_runLine;
    vela::sim::Simulator& m_printer;
    bool m_needsPrinterOption = false;
};

} // namespace

ExitCode DemoCommand::Run(Console& console, const RunLine& runLine) {
    const auto start = Clock::now();

    vela::sim::Simulator::Options options;
    options.name = kPrinterName;
    options.model = "410";
    vela::sim::Simulator printer(options);
    printer.ExportToEnvironment();
    ScratchFolder scratch;
    Demo demo(console, runLine, printer);
    demo.NameThePrinterWhenNeeded();

    demo.Say(
        "QRV demo. A simulated VELA QRV 410, \"" + std::string(kPrinterName) +
        "\", runs inside this process and is\n"
        "registered through QRV_VIRTUAL_PRINTERS, as `qrv-sim` does for other programs. Each step is a real\n"
        "qrvctl command line, run against it through the library's public gateway: discovery, the printer\n"
        "channel, the access lock and the status monitor all work as with a printer on USB.");

    try {
        demo.Step(1, "Which printers are there?",
                  "Discovery lists the printers on USB and the virtual ones.");
        demo.Command({"list"});

        demo.Step(2, "How is the printer?",
                  "Every field of the printer's status record, with what needs attention.");
        demo.Command({"status"});

        demo.Step(3, "What is it?",
                  "Versions, device id, cassette, battery, power, disk space, library folders.");
        demo.Command({"info"});

        const std::string logo = scratch.File("logo.png");
        const size_t logoSize = size_t{3} << 20;
        WriteBytes(logo, logoSize, 2024);
        demo.Step(4, "Put a file on the printer",
                  "A " + FormatBytes(logoSize) + " test file (random bytes) goes into the image library.");
        demo.Command({"put", logo, "/mnt/data/images/logo.png"});

        demo.Step(5, "List the folder", "The printer's listing of its image library (it takes a fixed 1 s).");
        demo.Command({"ls", "/mnt/data/images"});

        const std::string copy = scratch.File("logo-copy.png");
        demo.Step(6, "Get it back and compare", "The file comes back into a new host file.");
        demo.Command({"get", "/mnt/data/images/logo.png", copy});
        const bool same = ReadBytes(logo) == ReadBytes(copy);
        demo.Say(same ? "Compared the two host files: identical, " + std::to_string(logoSize) + " bytes."
                      : "Compared the two host files: THEY DIFFER.");
        if (!same) {
            throw StepFailed{ToInt(ExitCode::failure)};
        }

        demo.Step(7, "Feed and cut",
                  "After each print order the library gives the printer a fixed 5 s to carry it out.");
        demo.Command({"feed"});
        demo.Command({"cut"});

        demo.Step(
            8, "Watch the printer",
            "Status changes and print interrupts arrive from the library's monitor thread; meanwhile the\n"
            "demo changes the simulated printer's state, then presses Ctrl+C.");
        demo.WatchWhileThePrinterChanges();

        const std::string package = scratch.File("qrv-fw-2.0.0.pkg");
        WriteBytes(package, size_t{256} << 10, 7);
        demo.Step(
            9, "Apply a firmware update",
            "Copy, a fixed 4 s, the install order, a fixed 20 s, wait until idle, clean up: about 25 s.");
        demo.Command({"update", package});
    } catch (const StepFailed& failed) {
        console.ErrorLine("demo: the step above failed (exit code " + std::to_string(failed.code) + ")");
        return static_cast<ExitCode>(failed.code);
    }

    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
    demo.Say("\nDone in " + std::to_string(seconds) +
             " s. Try it yourself: `qrvctl --simulate status`, `qrvctl --help`, or start `qrv-sim`\n"
             "and point QRV_VIRTUAL_PRINTERS at it.");
    return ExitCode::ok;
}

} // namespace vela::qrvctl
