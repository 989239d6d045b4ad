#include "CliTestSupport.h"

#include "support/BuildPaths.h"
#include "support/windows/BuiltProgram.h"

#include <windows.h>

#include <thread>

namespace vela::test {

namespace {

// Reads until the child has ended and the pipe holds nothing more. Not until the pipe closes:
// under wine a system process that the child starts on demand gets a copy of its handles and
// may keep the pipe open long after the child is gone.
std::thread Drain(HANDLE pipe, HANDLE process, std::string& sink) {
    return std::thread([pipe, process, &sink] {
        char buffer[4096];
        for (;;) {
            const bool ended = ::WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
            DWORD available = 0;
            if (!::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) {
                return; // closed, and drained
            }
            DWORD got = 0;
            if (available > 0 && ::ReadFile(pipe, buffer, sizeof buffer, &got, nullptr)) {
                sink.append(buffer, got);
            } else if (ended) {
                return; // what the child wrote before it ended is in
            } else {
                ::WaitForSingleObject(process, 5);
            }
        }
    });
}

} // namespace

CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs) {
    const StartedProgram tool = StartBuiltProgram(kQrvctlPath, arguments, true);
    CliResult result;
    std::thread outReader = Drain(tool.output.Get(), tool.process.Get(), result.out);
    std::thread errReader = Drain(tool.error.Get(), tool.process.Get(), result.err);
    const bool killed = ::WaitForSingleObject(tool.process.Get(), timeoutMs) != WAIT_OBJECT_0;
    if (killed) {
        ::TerminateProcess(tool.process.Get(), 137);
        ::WaitForSingleObject(tool.process.Get(), INFINITE);
    }
    outReader.join();
    errReader.join();
    DWORD code = 0;
    ::GetExitCodeProcess(tool.process.Get(), &code);
    result.code = killed ? -1 : static_cast<int>(code);
    // The tool writes "\r\n" line ends on Windows; the tests compare lines.
    for (std::string* text : {&result.out, &result.err}) {
        std::string cleaned;
        for (size_t i = 0; i < text->size(); ++i) {
            if (!((*text)[i] == '\r' && i + 1 < text->size() && (*text)[i + 1] == '\n')) {
                cleaned.push_back((*text)[i]);
            }
        }
        *text = cleaned;
    }
    return result;
}

} // namespace vela::test
