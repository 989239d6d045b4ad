#include "CliTestSupport.h"

#include "support/windows/BuiltProgram.h"

#include <windows.h>

#include <thread>

namespace vela::test {

namespace {

// Reads until the child's end of the pipe closes.
std::thread Drain(HANDLE pipe, std::string& sink) {
    return std::thread([pipe, &sink] {
        char buffer[4096];
        DWORD got = 0;
        while (::ReadFile(pipe, buffer, sizeof buffer, &got, nullptr) && got > 0) {
            sink.append(buffer, got);
        }
    });
}

} // namespace

CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs) {
    const StartedProgram tool = StartBuiltProgram(QRVCTL_PATH, arguments, true);
    CliResult result;
    std::thread outReader = Drain(tool.output.Get(), result.out);
    std::thread errReader = Drain(tool.error.Get(), result.err);
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
