#include "support/BuildPaths.h"
#include "support/TestSupport.h"
#include "support/linux/SpawnedProgram.h"

#include <csignal>
#include <iostream>

namespace vela::test {

struct ChildProcess::Impl {
    SpawnedProgram program;
};

ChildProcess::ChildProcess(const std::vector<std::string>& helperArgs)
    : m_impl(new Impl{{kTestHelperPath, helperArgs, SpawnedProgram::Output::pipes}}) {}

ChildProcess::~ChildProcess() {
    Kill();
    m_impl->program.Wait(5000);
    m_impl->program.ReadToEnd(1000);
    if (!m_impl->program.Err().empty()) { // the helper's own complaints belong in the test's output
        std::cerr << "qrv-test-helper: " << m_impl->program.Err();
    }
}

std::string ChildProcess::ReadLine(uint32_t timeoutMs) {
    SpawnedProgram& program = m_impl->program;
    if (!program.ReadUntil("\n", timeoutMs) && !program.OutputEnded()) {
        return std::string();
    }
    // At the end of the output an unterminated last line comes out whole, then nothing.
    std::string& pending = program.Out();
    const size_t eol = pending.find('\n');
    std::string line = pending.substr(0, eol);
    pending.erase(0, eol == std::string::npos ? eol : eol + 1);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

int ChildProcess::Wait(uint32_t timeoutMs) {
    return m_impl->program.Wait(timeoutMs);
}

void ChildProcess::Kill() {
    m_impl->program.Signal(SIGKILL); // a zombie not yet waited for takes it harmlessly
}

bool ChildProcess::Running() {
    return m_impl->program.Wait(0) < 0;
}

} // namespace vela::test
