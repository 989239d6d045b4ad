#include "CliTestSupport.h"

#include "common/NativeHandle.h"
#include "common/StringConverter.h"
#include "support/windows/BuiltProgram.h"

#include <windows.h>

#include <stdexcept>
#include <thread>

namespace vela::test {

namespace {

using vela::common::StringConverter;
using vela::common::UniqueHandle;

// An anonymous pipe whose write end the child inherits.
class Pipe {
public:
    Pipe() {
        SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        HANDLE read = nullptr;
        HANDLE write = nullptr;
        if (!::CreatePipe(&read, &write, &inherit, 0)) {
            throw std::runtime_error("CreatePipe failed");
        }
        m_read.Reset(read);
        m_write.Reset(write);
        ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    }
    HANDLE Write() const { return m_write.Get(); }
    void CloseWrite() { m_write.Reset(); }
    // Reads until the other end is closed.
    std::thread Drain(std::string& sink) {
        return std::thread([this, &sink] {
            char buffer[4096];
            DWORD got = 0;
            while (::ReadFile(m_read.Get(), buffer, sizeof buffer, &got, nullptr) && got > 0) {
                sink.append(buffer, got);
            }
        });
    }

private:
    UniqueHandle m_read;
    UniqueHandle m_write;
};

} // namespace

CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs) {
    const std::wstring tool = LocateBuiltProgram(QRVCTL_PATH);
    std::wstring commandLine = QuoteArgument(tool);
    for (const auto& argument : arguments) {
        commandLine += L" " + QuoteArgument(StringConverter::FromUtf8(argument));
    }
    Pipe out;
    Pipe err;
    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    UniqueHandle nul(::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                   OPEN_EXISTING, 0, nullptr));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nul.Get();
    startup.hStdOutput = out.Write();
    startup.hStdError = err.Write();
    PROCESS_INFORMATION process{};
    std::vector<wchar_t> mutableLine(commandLine.begin(), commandLine.end());
    mutableLine.push_back(L'\0');
    const BOOL started = ::CreateProcessW(tool.c_str(), mutableLine.data(), nullptr, nullptr, TRUE, 0,
                                          nullptr, nullptr, &startup, &process);
    nul.Reset();
    out.CloseWrite();
    err.CloseWrite();
    if (!started) {
        throw std::runtime_error("CreateProcessW failed for " + StringConverter::ToUtf8(tool) + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    }
    ::CloseHandle(process.hThread);
    const UniqueHandle child(process.hProcess);
    CliResult result;
    std::thread outReader = out.Drain(result.out);
    std::thread errReader = err.Drain(result.err);
    bool killed = false;
    if (::WaitForSingleObject(child.Get(), timeoutMs) != WAIT_OBJECT_0) {
        ::TerminateProcess(child.Get(), 137);
        ::WaitForSingleObject(child.Get(), INFINITE);
        killed = true;
    }
    outReader.join();
    errReader.join();
    DWORD code = 0;
    ::GetExitCodeProcess(child.Get(), &code);
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
