#include "BuiltProgram.h"

#include "common/StringConverter.h"

#include <windows.h>

#include <mutex>
#include <stdexcept>

namespace vela::test {
namespace {

// Wine's own conversion of a Unix path; empty when not under wine or not convertible.
std::wstring WineDosPath(const std::string& unixPath) {
    using UnixToDos = WCHAR* (*)(const char*);
    auto convert = reinterpret_cast<UnixToDos>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_dos_file_name")));
    WCHAR* dos = convert != nullptr ? convert(unixPath.c_str()) : nullptr;
    const std::wstring path = dos != nullptr ? dos : L"";
    if (dos != nullptr) {
        ::HeapFree(::GetProcessHeap(), 0, dos);
    }
    return path;
}

// One argument quoted so that the child's C runtime (CommandLineToArgvW rules) reads it back as is.
std::wstring QuoteArgument(const std::wstring& argument) {
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

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + " failed (Win32 error " + std::to_string(::GetLastError()) + ")");
}

// The read end stays here; the child inherits the write end.
vela::common::UniqueHandle MakePipe(vela::common::UniqueHandle& childEnd) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (!::CreatePipe(&read, &write, &inheritable, 0)) {
        Fail("CreatePipe");
    }
    childEnd.Reset(write);
    ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
    return vela::common::UniqueHandle(read);
}

} // namespace

std::wstring LocateBuiltProgram(const std::string& builtPath) {
    const std::wstring asGiven = vela::common::StringConverter::FromUtf8(builtPath);
    std::wstring self(32768, L'\0');
    self.resize(::GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
    // As given (a Windows path), as wine converts a Unix path, or beside the test program.
    for (const std::wstring& candidate :
         {builtPath.empty() || builtPath[0] == '/' ? std::wstring() : asGiven, WineDosPath(builtPath),
          self.substr(0, self.find_last_of(L"\\/") + 1) + asGiven.substr(asGiven.find_last_of(L"/\\") + 1)}) {
        if (!candidate.empty() && ::GetFileAttributesW(candidate.c_str()) != INVALID_FILE_ATTRIBUTES) {
            return candidate;
        }
    }
    throw std::runtime_error("built program not found: " + builtPath);
}

StartedProgram StartBuiltProgram(const std::string& builtPath, const std::vector<std::string>& arguments,
                                 bool captureError) {
    using vela::common::StringConverter;
    using vela::common::UniqueHandle;
    const std::wstring program = LocateBuiltProgram(builtPath);
    std::wstring commandLine = QuoteArgument(program);
    for (const auto& argument : arguments) {
        commandLine += L" " + QuoteArgument(StringConverter::FromUtf8(argument));
    }
    // One start at a time: another child inheriting these ends would hide this one's end of output.
    static std::mutex starting;
    std::lock_guard<std::mutex> lock(starting);
    StartedProgram started;
    UniqueHandle input;
    UniqueHandle output;
    UniqueHandle error;
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    input.Reset(::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                              OPEN_EXISTING, 0, nullptr));
    started.output = MakePipe(output);
    HANDLE ours = ::GetStdHandle(STD_ERROR_HANDLE);
    HANDLE copy = nullptr;
    if (captureError) {
        started.error = MakePipe(error);
    } else if (ours != nullptr && ours != INVALID_HANDLE_VALUE &&
               ::DuplicateHandle(::GetCurrentProcess(), ours, ::GetCurrentProcess(), &copy, 0, TRUE,
                                 DUPLICATE_SAME_ACCESS)) {
        error.Reset(copy);
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.Get();
    startup.hStdOutput = output.Get();
    startup.hStdError = error.Get();
    PROCESS_INFORMATION info{};
    // No console: the tests talk to the child through the pipes only, and a console would cost a
    // console host process per child (under wine one that inherits these handles and may outlive
    // the child, keeping its end of the output open).
    if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, DETACHED_PROCESS,
                          nullptr, nullptr, &startup, &info)) {
        Fail("CreateProcessW " + StringConverter::ToUtf8(program));
    }
    ::CloseHandle(info.hThread);
    started.process.Reset(info.hProcess);
    // The child's ends close here, so the pipes end when the child does.
    return started;
}

} // namespace vela::test
