#include "CliTestSupport.h"

#include "CommandLine.h"
#include "common/StringConverter.h"
#include "support/TestSupport.h"

namespace vela::test {

namespace {
vela::sim::Simulator::Options SimulatorOptions() {
    vela::sim::Simulator::Options options;
    options.name = CliTest::kPrinter;
    return options;
}
} // namespace

vela::qrvctl::Console::Sink SharedText::Sink() {
    return [this](std::string_view text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_text.append(text);
        return true;
    };
}

std::string SharedText::Text() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_text;
}

bool SharedText::WaitFor(const std::string& part, uint32_t timeoutMs) const {
    return Eventually([&] { return Text().find(part) != std::string::npos; }, timeoutMs);
}

nlohmann::json CliResult::Json() const {
    try {
        return nlohmann::json::parse(out);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "not one JSON document (" << e.what() << "):\n" << out << "\nstderr:\n" << err;
        return nlohmann::json();
    }
}

CliTest::CliTest()
    : m_simulator(SimulatorOptions()),
      m_environment("QRV_VIRTUAL_PRINTERS",
                    vela::common::StringConverter::FromUtf8(m_simulator.EntryText())) {}

CliResult RunInProcess(const std::vector<std::string>& arguments, bool terminal, int columns) {
    SharedText out;
    SharedText err;
    vela::qrvctl::Console console(out.Sink(), err.Sink(), terminal, columns);
    CliResult result;
    result.code = vela::qrvctl::CommandLine::Run(arguments, console);
    result.out = out.Text();
    result.err = err.Text();
    return result;
}

CliResult CliTest::Run(std::vector<std::string> arguments, bool namePrinter) {
    if (namePrinter) {
        arguments.insert(arguments.begin(), {"--printer", kPrinter});
    }
    return RunInProcess(arguments);
}

} // namespace vela::test
