#include "BuiltProgram.h"

#include "common/StringConverter.h"

#include <windows.h>

#include <stdexcept>

namespace vela::test {
namespace {

bool FileExists(const std::wstring& path) {
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Wine's own conversion of a Unix path; empty when not under wine or not convertible.
std::wstring WineDosPath(const std::string& unixPath) {
    using UnixToDos = WCHAR* (*)(const char*);
    HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) {
        return std::wstring();
    }
    auto convert = reinterpret_cast<UnixToDos>(
        reinterpret_cast<void*>(::GetProcAddress(kernel, "wine_get_dos_file_name")));
    WCHAR* dos = convert != nullptr ? convert(unixPath.c_str()) : nullptr;
    if (dos == nullptr) {
        return std::wstring();
    }
    std::wstring path(dos);
    ::HeapFree(::GetProcessHeap(), 0, dos);
    return path;
}

std::wstring OwnFolder() {
    std::wstring self(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = ::GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
        if (length < self.size()) {
            self.resize(length);
            break;
        }
        self.resize(self.size() * 2);
    }
    return self.substr(0, self.find_last_of(L"\\/") + 1);
}

} // namespace

std::wstring LocateBuiltProgram(const std::string& builtPath) {
    const std::wstring asGiven = vela::common::StringConverter::FromUtf8(builtPath);
    if (!builtPath.empty() && builtPath[0] != '/' && FileExists(asGiven)) {
        return asGiven;
    }
    const std::wstring converted = WineDosPath(builtPath);
    if (!converted.empty() && FileExists(converted)) {
        return converted;
    }
    const std::wstring beside = OwnFolder() + asGiven.substr(asGiven.find_last_of(L"/\\") + 1);
    if (FileExists(beside)) {
        return beside;
    }
    throw std::runtime_error("built program not found: " + builtPath);
}

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

} // namespace vela::test
