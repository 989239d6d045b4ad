#include "CliTestSupport.h"

#include "CommandLine.h"
#include "common/StringConverter.h"
#include "support/TestSupport.h"

#include <sstream>

namespace vela::test {

namespace {
vela::sim::Simulator::Options SimulatorOptions() {
    vela::sim::Simulator::Options options;
    options.name = CliTest::kPrinter;
    return options;
}
} // namespace

std::string SharedTextBuffer::Text() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_text;
}

bool SharedTextBuffer::WaitFor(const std::string& part, uint32_t timeoutMs) const {
    return Eventually([&] { return Text().find(part) != std::string::npos; }, timeoutMs);
}

SharedTextBuffer::int_type SharedTextBuffer::overflow(int_type c) {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_text.push_back(traits_type::to_char_type(c));
    }
    return traits_type::not_eof(c);
}

std::streamsize SharedTextBuffer::xsputn(const char* data, std::streamsize size) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_text.append(data, static_cast<size_t>(size));
    return size;
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
    SharedTextBuffer out;
    SharedTextBuffer err;
    std::ostream outStream(&out);
    std::ostream errStream(&err);
    vela::qrvctl::Console console(outStream, errStream, terminal, columns);
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
