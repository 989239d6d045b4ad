#include "common/HostFile.h"

#include "common/HostFileSystem.h"

#include <windows.h>

#include <atomic>
#include <cwchar>

namespace vela::common {

namespace {

HostFileError Classify(DWORD code) {
    HostFileError error;
    error.systemError = code;
    switch (code) {
    case ERROR_FILE_NOT_FOUND:
        error.failure = HostFileFailure::fileNotFound;
        break;
    case ERROR_PATH_NOT_FOUND:
        error.failure = HostFileFailure::pathNotFound;
        break;
    case ERROR_ACCESS_DENIED:
        error.failure = HostFileFailure::accessDenied;
        break;
    default:
        error.failure = HostFileFailure::other;
        break;
    }
    return error;
}

bool HasNul(const std::wstring& path) {
    return path.find(L'\0') != std::wstring::npos;
}

// The folder part of a path including its separator ("" for a bare name, "C:" for "C:name").
std::wstring FolderPrefix(const std::wstring& path) {
    size_t cut = path.find_last_of(L"\\/:");
    return cut == std::wstring::npos ? std::wstring() : path.substr(0, cut + 1);
}

constexpr DWORD kMaxPiece = 1u << 30;

} // namespace

HostPath ToHostPath(const std::wstring& path) {
    return path;
}

std::wstring FromHostPath(const HostPath& path) {
    return path;
}

// ---- reading ------------------------------------------------------------------------------

HostFileError HostFileReader::Open(const std::wstring& path) {
    m_handle.Reset();
    if (HasNul(path)) {
        return Classify(ERROR_INVALID_NAME);
    }
    if (path.empty()) {
        return Classify(ERROR_PATH_NOT_FOUND);
    }
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return Classify(::GetLastError());
    }
    m_handle.Reset(file);
    return {};
}

bool HostFileReader::Size(uint64_t& size) {
    LARGE_INTEGER value{};
    if (!::GetFileSizeEx(m_handle.Get(), &value)) {
        m_lastError = ::GetLastError();
        return false;
    }
    size = static_cast<uint64_t>(value.QuadPart);
    return true;
}

size_t HostFileReader::Read(uint8_t* buffer, size_t count) {
    size_t total = 0;
    while (total < count) {
        DWORD piece = count - total < kMaxPiece ? static_cast<DWORD>(count - total) : kMaxPiece;
        DWORD got = 0;
        if (!::ReadFile(m_handle.Get(), buffer + total, piece, &got, nullptr)) {
            m_lastError = ::GetLastError();
            break;
        }
        if (got == 0) {
            break;
        }
        total += got;
    }
    return total;
}

// ---- the calls behind replacing -------------------------------------------------------------

namespace host_file {

HostFileError InvalidName() {
    return Classify(ERROR_INVALID_NAME);
}

HostFileError EmptyName() {
    return Classify(ERROR_PATH_NOT_FOUND);
}

uint32_t NotOpenError() {
    return ERROR_INVALID_HANDLE;
}

HostFileError ProbeTarget(HostPath& target, bool& existing, uint32_t&) {
    // A read-only file or a folder answers "access denied", a missing folder "path not found".
    HANDLE probe =
        ::CreateFileW(target.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    existing = probe != INVALID_HANDLE_VALUE;
    if (!existing) {
        DWORD code = ::GetLastError();
        return code == ERROR_FILE_NOT_FOUND ? HostFileError{} : Classify(code);
    }
    ::CloseHandle(probe);
    return {};
}

HostPath TemporaryName(const HostPath& target) {
    static std::atomic<unsigned long long> counter{0};
    LARGE_INTEGER tick{};
    ::QueryPerformanceCounter(&tick);
    wchar_t name[64];
    std::swprintf(name, sizeof name / sizeof name[0], L".qrv-%lu-%llx-%llx.tmp",
                  static_cast<unsigned long>(::GetCurrentProcessId()), counter.fetch_add(1),
                  static_cast<unsigned long long>(tick.QuadPart));
    return FolderPrefix(target) + name;
}

HostFileError CreateNew(const HostPath& path, bool, uint32_t, UniqueHandle& handle, bool& collided) {
    HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DWORD code = ::GetLastError();
        collided = code == ERROR_FILE_EXISTS || code == ERROR_ALREADY_EXISTS;
        return Classify(code);
    }
    handle.Reset(file);
    return {};
}

bool WriteAll(UniqueHandle& handle, const uint8_t* data, size_t count, uint64_t, uint32_t& error) {
    size_t total = 0;
    while (total < count) {
        DWORD piece = count - total < kMaxPiece ? static_cast<DWORD>(count - total) : kMaxPiece;
        DWORD put = 0;
        if (!::WriteFile(handle.Get(), data + total, piece, &put, nullptr)) {
            error = ::GetLastError();
            return false;
        }
        if (put == 0) {
            error = ERROR_DISK_FULL;
            return false;
        }
        total += put;
    }
    return true;
}

bool ReadableWhileWritten() {
    return false;
}

bool FlushAndClose(UniqueHandle& handle, uint32_t& error) {
    // A delayed write error shows up at the flush or the close; either one fails the transfer.
    if (!::FlushFileBuffers(handle.Get()) || !handle.Close()) {
        error = ::GetLastError();
        return false;
    }
    return true;
}

bool RenameOver(const HostPath& from, const HostPath& to, uint32_t& error) {
    if (!::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        error = ::GetLastError();
        return false;
    }
    return true;
}

void Remove(const HostPath& path) noexcept {
    (void)::DeleteFileW(path.c_str());
}

} // namespace host_file

} // namespace vela::common
