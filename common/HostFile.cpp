#include "common/HostFile.h"

#include "common/HostFileSystem.h"

#include <system_error>
#include <thread>

namespace vela::common {

namespace {

bool HasNul(const std::wstring& path) {
    return path.find(L'\0') != std::wstring::npos;
}

// Temporary names are tried this many times before the folder is taken for unusable.
constexpr int kNameAttempts = 100;

} // namespace

HostFileReplacer::~HostFileReplacer() {
    Discard();
}

void HostFileReplacer::Discard() noexcept {
    m_handle.Reset();
    if (!m_committed && !m_temporary.empty()) {
        host_file::Remove(m_temporary);
    }
    m_temporary.clear();
}

HostFileError HostFileReplacer::Open(const std::wstring& target) {
    Discard();
    m_committed = false;
    m_written = 0;
    if (HasNul(target)) {
        return host_file::InvalidName();
    }
    if (target.empty()) {
        return host_file::EmptyName();
    }
    m_target = ToHostPath(target);
    bool existing = false;
    uint32_t mode = 0;
    if (HostFileError error = host_file::ProbeTarget(m_target, existing, mode)) {
        return error;
    }
    HostFileError error;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        HostPath candidate = host_file::TemporaryName(m_target);
        bool collided = false;
        error = host_file::CreateNew(candidate, existing, mode, m_handle, collided);
        if (!error) {
            m_temporary = std::move(candidate);
            return {};
        }
        if (!collided) {
            break;
        }
    }
    return error;
}

bool HostFileReplacer::Write(const uint8_t* data, size_t count) {
    if (!host_file::WriteAll(m_handle, data, count, m_written, m_lastError)) {
        return false;
    }
    m_written += count;
    return true;
}

bool HostFileReplacer::Commit() {
    if (!m_handle.IsValid()) {
        m_lastError = host_file::NotOpenError();
        return false;
    }
    return host_file::FlushAndClose(m_handle, m_lastError) && RenameIntoPlace();
}

bool HostFileReplacer::Commit(const std::function<void(const std::wstring& temporary)>& meanwhile) {
    if (!m_handle.IsValid()) {
        m_lastError = host_file::NotOpenError();
        return false;
    }
    const std::wstring temporary = FromHostPath(m_temporary);
    if (!host_file::ReadableWhileWritten()) {
        if (!host_file::FlushAndClose(m_handle, m_lastError)) {
            return false;
        }
        meanwhile(temporary);
        return RenameIntoPlace();
    }
    bool flushed = false;
    uint32_t flushError = 0;
    std::thread flusher;
    try {
        flusher = std::thread(
            [this, &flushed, &flushError] { flushed = host_file::FlushAndClose(m_handle, flushError); });
    } catch (const std::system_error&) {
        meanwhile(temporary);
        return Commit();
    }
    try {
        meanwhile(temporary);
    } catch (...) {
        flusher.join();
        throw;
    }
    flusher.join();
    if (!flushed) {
        m_lastError = flushError;
        return false;
    }
    return RenameIntoPlace();
}

bool HostFileReplacer::RenameIntoPlace() {
    if (!host_file::RenameOver(m_temporary, m_target, m_lastError)) {
        return false;
    }
    m_committed = true;
    m_temporary.clear();
    return true;
}

} // namespace vela::common
