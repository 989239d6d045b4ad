#pragma once

#include "Console.h"
#include "sim/Simulator.h"
#include "support/PauseRecorder.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace vela::test {

// What the console wrote to one stream, which several threads may write and one may read at the
// same time (the watch writes events while a test waits for them).
class SharedText {
public:
    // Where the console writes; lives as long as this.
    vela::qrvctl::Console::Sink Sink();
    std::string Text() const;
    // Waits until the text holds `part`; false after `timeoutMs`.
    bool WaitFor(const std::string& part, uint32_t timeoutMs) const;

private:
    mutable std::mutex m_mutex;
    std::string m_text;
};

// What one command line printed and returned.
struct CliResult {
    int code = -1;
    std::string out;
    std::string err;
    nlohmann::json Json() const; // the output as one JSON document (fails the test when it is not)
};

// The tool's commands run in this process against a simulator that is registered through
// QRV_VIRTUAL_PRINTERS, with the library's fixed pauses recorded instead of slept.
class CliTest : public ::testing::Test {
public:
    static constexpr const char* kPrinter = "CLI Test Printer";

protected:
    CliTest();

    // Runs `qrvctl --printer "CLI Test Printer" ARGS...` and captures its two streams.
    CliResult Run(std::vector<std::string> arguments, bool namePrinter = true);
    vela::sim::SimPrinter& Printer() { return m_simulator.Printer(); }

    vela::sim::Simulator m_simulator;
    ScopedEnvironment m_environment;
    PauseRecorder m_pauses;
};

// Runs `qrvctl ARGS...` in this process on a console of `columns` (80: piped, no terminal).
CliResult RunInProcess(const std::vector<std::string>& arguments, bool terminal = false, int columns = 80);

// The real qrvctl executable, started with `arguments` in this process's environment; waits up
// to `timeoutMs` (then kills it: code -1). Bodies per operating system.
CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs = 60000);

} // namespace vela::test
