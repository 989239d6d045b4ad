#include "support/TestSupport.h"

#include "BuiltProgram.h"
#include "common/NativeHandle.h"
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
using Handle = vela::common::UniqueHandle;

// Exit code of a killed child, as a shell reports SIGKILL on Linux.
constexpr UINT kKilledExitCode = 128 + 9;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("ChildProcess: " + what + " failed (Win32 error " +
                             std::to_string(::GetLastError()) + ")");
}

// Pipe ends given to a child must be inheritable while it starts, and no other child may inherit
// them (a second child holding our pipe open would hide the first one's end of output), so
// children are started one at a time.
std::mutex& StartMutex() {
    static std::mutex mutex;
    return mutex;
}

// An anonymous pipe whose two ends are inheritable.
void MakePipe(Handle& readEnd, Handle& writeEnd) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (!::CreatePipe(&read, &write, &inheritable, 0)) {
        Fail("CreatePipe");
    }
    readEnd.Reset(read);
    writeEnd.Reset(write);
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
    const std::wstring helper = LocateBuiltProgram(QRV_TEST_HELPER_PATH);
    std::wstring commandLine = QuoteArgument(helper);
    for (const auto& argument : helperArgs) {
        commandLine += L" " + QuoteArgument(StringConverter::FromUtf8(argument));
    }

    std::lock_guard<std::mutex> starting(StartMutex());
    Handle childInput;
    Handle childOutput;
    Handle childError;
    MakePipe(childInput, m_impl->input);
    MakePipe(m_impl->output, childOutput);
    ::SetHandleInformation(m_impl->input.Get(), HANDLE_FLAG_INHERIT, 0);
    ::SetHandleInformation(m_impl->output.Get(), HANDLE_FLAG_INHERIT, 0);
    // The child reports problems on our standard error, through an inheritable copy.
    HANDLE error = ::GetStdHandle(STD_ERROR_HANDLE);
    HANDLE errorCopy = nullptr;
    if (error != nullptr && error != INVALID_HANDLE_VALUE &&
        ::DuplicateHandle(::GetCurrentProcess(), error, ::GetCurrentProcess(), &errorCopy, 0, TRUE,
                          DUPLICATE_SAME_ACCESS)) {
        childError.Reset(errorCopy);
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
    m_impl->process.Reset(info.hProcess);
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
