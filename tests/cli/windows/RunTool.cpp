#include "CliTestSupport.h"

#include "common/StringConverter.h"

#include <windows.h>

#include <stdexcept>
#include <thread>

namespace vela::test {

namespace {

using vela::common::StringConverter;

bool FileExists(const std::wstring& path) {
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The build system gives the tool's path on the build host. Cross-built and run under wine that
// is a Unix path, which wine turns into its drive-letter form.
std::wstring ToolPath() {
    const std::string built = QRVCTL_PATH;
    const std::wstring asGiven = StringConverter::FromUtf8(built);
    if (!built.empty() && built[0] != '/') {
        return asGiven;
    }
    using UnixToDos = WCHAR* (*)(const char*);
    if (HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll")) {
        auto convert = reinterpret_cast<UnixToDos>(
            reinterpret_cast<void*>(::GetProcAddress(kernel, "wine_get_dos_file_name")));
        if (convert != nullptr) {
            if (WCHAR* dos = convert(built.c_str())) {
                std::wstring path(dos);
                ::HeapFree(::GetProcessHeap(), 0, dos);
                if (FileExists(path)) {
                    return path;
                }
            }
        }
    }
    return asGiven;
}

// One argument quoted the way CommandLineToArgvW reads it back.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring result = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        result.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        result.push_back(c);
    }
    result.append(backslashes * 2, L'\\');
    return result + L"\"";
}

class Pipe {
public:
    Pipe() {
        SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        if (!::CreatePipe(&m_read, &m_write, &inherit, 0)) {
            throw std::runtime_error("CreatePipe failed");
        }
        // Only the child's end is inherited.
        ::SetHandleInformation(m_read, HANDLE_FLAG_INHERIT, 0);
    }
    ~Pipe() {
        CloseWrite();
        ::CloseHandle(m_read);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    HANDLE Write() const { return m_write; }
    void CloseWrite() {
        if (m_write != nullptr) {
            ::CloseHandle(m_write);
            m_write = nullptr;
        }
    }
    // Reads until the other end is closed.
    std::thread Drain(std::string& sink) {
        return std::thread([this, &sink] {
            char buffer[4096];
            DWORD got = 0;
            while (::ReadFile(m_read, buffer, sizeof buffer, &got, nullptr) && got > 0) {
                sink.append(buffer, got);
            }
        });
    }

private:
    HANDLE m_read = nullptr;
    HANDLE m_write = nullptr;
};

} // namespace

CliResult RunTool(const std::vector<std::string>& arguments, uint32_t timeoutMs) {
    const std::wstring tool = ToolPath();
    std::wstring commandLine = Quoted(tool);
    for (const auto& argument : arguments) {
        commandLine += L" " + Quoted(StringConverter::FromUtf8(argument));
    }
    Pipe out;
    Pipe err;
    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE nul = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                               OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nul;
    startup.hStdOutput = out.Write();
    startup.hStdError = err.Write();
    PROCESS_INFORMATION process{};
    std::vector<wchar_t> mutableLine(commandLine.begin(), commandLine.end());
    mutableLine.push_back(L'\0');
    const BOOL started = ::CreateProcessW(tool.c_str(), mutableLine.data(), nullptr, nullptr, TRUE, 0,
                                          nullptr, nullptr, &startup, &process);
    if (nul != INVALID_HANDLE_VALUE) {
        ::CloseHandle(nul);
    }
    out.CloseWrite();
    err.CloseWrite();
    if (!started) {
        throw std::runtime_error("CreateProcessW failed for " + StringConverter::ToUtf8(tool) + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    }
    CliResult result;
    std::thread outReader = out.Drain(result.out);
    std::thread errReader = err.Drain(result.err);
    bool killed = false;
    if (::WaitForSingleObject(process.hProcess, timeoutMs) != WAIT_OBJECT_0) {
        ::TerminateProcess(process.hProcess, 137);
        ::WaitForSingleObject(process.hProcess, INFINITE);
        killed = true;
    }
    outReader.join();
    errReader.join();
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
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
