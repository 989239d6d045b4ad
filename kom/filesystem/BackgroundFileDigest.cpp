#include "kom/filesystem/BackgroundFileDigest.h"

#include "common/Exception.h"
#include "common/LogAndThrow.h"
#include "common/MD5FileHash.h"

#include <system_error>
#include <utility>

namespace vela::kom {

namespace {
constexpr size_t kDigestSize = 16;
}

BackgroundFileDigest::BackgroundFileDigest(std::wstring hostFileName, std::wstring source)
    : m_hostFileName(std::move(hostFileName)), m_source(std::move(source)) {
    try {
        m_thread = std::thread([this] { Read(); });
    } catch (const std::system_error&) {
        // No thread to spare: Take reads the file on the caller's thread.
    }
}

BackgroundFileDigest::~BackgroundFileDigest() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void BackgroundFileDigest::Read() noexcept {
    try {
        vela::common::MD5FileHash hash;
        std::vector<uint8_t> digest;
        if (!hash.GetHash(m_hostFileName, digest) || digest.size() != kDigestSize) {
            vela::common::LogAndThrow(vela::common::MD5Exception(L"'Couldn't hash the file'", m_source));
        }
        m_digest = std::move(digest);
    } catch (...) {
        m_failure = std::current_exception();
    }
}

std::vector<uint8_t> BackgroundFileDigest::Take() {
    if (m_thread.joinable()) {
        m_thread.join();
    } else if (m_digest.empty() && !m_failure) {
        Read();
    }
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
    return std::move(m_digest);
}

} // namespace vela::kom
