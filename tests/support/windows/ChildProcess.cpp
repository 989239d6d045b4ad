#include "support/TestSupport.h"

#include "common/StringConverter.h"

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace vela::test {
namespace {

using vela::common::StringConverter;

// Exit code of a killed child, as a shell reports SIGKILL on Linux.
constexpr UINT kKilledExitCode = 128 + 9;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("ChildProcess: " + what + " failed (Win32 error " +
                             std::to_string(::GetLastError()) + ")");
}

class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Reset(); }
    HANDLE Get() const { return m_handle; }
    HANDLE* Out() {
        Reset();
        return &m_handle;
    }
    void Reset() {
        if (m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE) {
            ::CloseHandle(m_handle);
        }
        m_handle = nullptr;
    }

private:
    HANDLE m_handle = nullptr;
};

bool FileExists(const std::wstring& path) {
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The helper's path comes from the build system of the build host. Cross-built and run under wine
// it is a Unix path: wine converts it to its own drive letter form; failing that, the helper is
// looked for beside the running test program (both are built into the same folder).
std::wstring HelperPath() {
    const std::string built = QRV_TEST_HELPER_PATH;
    const std::wstring asGiven = StringConverter::FromUtf8(built);
    if (!built.empty() && built[0] != '/' && FileExists(asGiven)) {
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
    std::wstring self(MAX_PATH, L'\0');
    for (;;) {
        DWORD length = ::GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
        if (length < self.size()) {
            self.resize(length);
            break;
        }
        self.resize(self.size() * 2);
    }
    const std::wstring name = asGiven.substr(asGiven.find_last_of(L"/\\") + 1);
    const std::wstring beside = self.substr(0, self.find_last_of(L"\\/") + 1) + name;
    if (FileExists(beside)) {
        return beside;
    }
    throw std::runtime_error("ChildProcess: test helper not found: " + built);
}

// One argument quoted the way the C runtime of the child splits its command line.
std::wstring Quote(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes are literal except before a quote, where each one must be doubled.
        quoted.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        quoted += c;
    }
    quoted.append(backslashes * 2, L'\\');
    quoted += L'"';
    return quoted;
}

// Pipe ends given to a child must be inheritable while it starts, and no other child may inherit
// them (a second child holding our pipe open would hide the first one's end of output), so
// children are started one at a time.
std::mutex& StartMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

struct ChildProcess::Impl {
    Handle process;
    Handle input;  // write end of the child's standard input; closing it tells the child to end
    Handle output; // read end of the child's standard output

    // A thread reads the output, because anonymous pipes have no overlapped reads to time out.
    std::mutex mutex;
    std::condition_variable arrived;
    std::string pending;
    bool ended = false;
    std::thread reader;

    void ReadOutput() {
        char buffer[512];
        DWORD count = 0;
        while (::ReadFile(output.Get(), buffer, sizeof buffer, &count, nullptr) && count > 0) {
            std::lock_guard<std::mutex> lock(mutex);
            pending.append(buffer, count);
            arrived.notify_all();
        }
        std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        arrived.notify_all();
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& helperArgs) : m_impl(std::make_unique<Impl>()) {
    const std::wstring helper = HelperPath();
    std::wstring commandLine = Quote(helper);
    for (const auto& argument : helperArgs) {
        commandLine += L" " + Quote(StringConverter::FromUtf8(argument));
    }

    std::lock_guard<std::mutex> starting(StartMutex());
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    Handle childInput;
    Handle childOutput;
    Handle childError;
    if (!::CreatePipe(childInput.Out(), m_impl->input.Out(), &inheritable, 0) ||
        !::CreatePipe(m_impl->output.Out(), childOutput.Out(), &inheritable, 0)) {
        Fail("CreatePipe");
    }
    ::SetHandleInformation(m_impl->input.Get(), HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(m_impl->output.Get(), HANDLE_FLAG_INHERIT, 0);
    // The child reports problems on our standard error, through an inheritable copy.
    HANDLE error = ::GetStdHandle(STD_ERROR_HANDLE);
    if (error != nullptr && error != INVALID_HANDLE_VALUE) {
        ::DuplicateHandle(::GetCurrentProcess(), error, ::GetCurrentProcess(), childError.Out(), 0, TRUE,
                          DUPLICATE_SAME_ACCESS);
    }

    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childInput.Get();
    startup.hStdOutput = childOutput.Get();
    startup.hStdError = childError.Get();
    PROCESS_INFORMATION info{};
    if (!::CreateProcessW(helper.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                          nullptr, nullptr, &startup, &info)) {
        Fail("CreateProcessW " + StringConverter::ToUtf8(helper));
    }
    ::CloseHandle(info.hThread);
    *m_impl->process.Out() = info.hProcess;
    // Our copies of the child's ends close here, so the output ends when the child does.
    m_impl->reader = std::thread([impl = m_impl.get()] { impl->ReadOutput(); });
}

ChildProcess::~ChildProcess() {
    Kill();
    ::WaitForSingleObject(m_impl->process.Get(), INFINITE);
    m_impl->input.Reset();
    if (m_impl->reader.joinable()) {
        m_impl->reader.join();
    }
}

std::string ChildProcess::ReadLine(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    auto& pending = m_impl->pending;
    const bool ready = m_impl->arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return pending.find('\n') != std::string::npos || m_impl->ended;
    });
    if (!ready) {
        return std::string();
    }
    const size_t eol = pending.find('\n');
    std::string line;
    if (eol == std::string::npos) {
        line.swap(pending); // end of output: hand out an unterminated last line, then nothing
    } else {
        line = pending.substr(0, eol);
        pending.erase(0, eol + 1);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

int ChildProcess::Wait(uint32_t timeoutMs) {
    if (::WaitForSingleObject(m_impl->process.Get(), timeoutMs) != WAIT_OBJECT_0) {
        return -1;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_impl->process.Get(), &code);
    return static_cast<int>(code);
}

void ChildProcess::Kill() {
    if (Running()) {
        ::TerminateProcess(m_impl->process.Get(), kKilledExitCode);
    }
}

bool ChildProcess::Running() {
    return ::WaitForSingleObject(m_impl->process.Get(), 0) == WAIT_TIMEOUT;
}

} // namespace vela::test
