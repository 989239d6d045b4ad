#include "common/MD5FileHash.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"
#include "common/StringConverter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

namespace vela::common {

namespace {

// The code the Windows provider reports for a hash object that was already finished; used so
// that a second digest on one object fails the same way on both platforms.
constexpr uint32_t kBadHashState = 0x8009000Bu;

EVP_MD_CTX* Context(uintptr_t handle) {
    return reinterpret_cast<EVP_MD_CTX*>(handle);
}

[[noreturn]] void Fail(const wchar_t* format, uint32_t code, const wchar_t* source) {
    LogAndThrow(MD5Exception(Format(format, static_cast<int32_t>(code)), source));
}

} // namespace

MD5FileHash::MD5FileHash() {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    if (context == nullptr) {
        Fail(L"EVP_MD_CTX_new() failed rc = %d", ENOMEM, L"MD5FileHash::MD5FileHash()");
    }
    if (EVP_DigestInit_ex(context, EVP_md5(), nullptr) != 1) {
        EVP_MD_CTX_free(context);
        Fail(L"EVP_DigestInit_ex() failed rc = %d", EINVAL, L"MD5FileHash::MD5FileHash()");
    }
    m_provider = 1; // libcrypto needs no provider context of its own
    m_hash = reinterpret_cast<uintptr_t>(context);
}

MD5FileHash::~MD5FileHash() {
    if (m_hash != 0) {
        EVP_MD_CTX_free(Context(m_hash));
    }
}

bool MD5FileHash::GetHash(const std::wstring& path, std::vector<uint8_t>& digest) {
    if (m_provider == 0 || m_hash == 0) {
        return false;
    }
    UniqueHandle file(::open(StringConverter::ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsValid()) {
        Fail(L"open() failed rc = %d", static_cast<uint32_t>(errno), L"MD5FileHash::GetHash()");
    }
    (void)::posix_fadvise(file.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    // Large reads keep the system calls few; the hash still takes the data in 1024-byte updates.
    std::vector<uint8_t> block(kReadSize);
    for (;;) {
        ssize_t got = ::read(file.Get(), block.data(), block.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail(L"read() failed rc = %d", static_cast<uint32_t>(errno), L"MD5FileHash::GetHash()");
        }
        if (got == 0) {
            break;
        }
        for (size_t at = 0; at < static_cast<size_t>(got); at += kUpdateSize) {
            const size_t piece = std::min(kUpdateSize, static_cast<size_t>(got) - at);
            // One object digests one file: once finished, the hash refuses more data.
            if (m_finalised || EVP_DigestUpdate(Context(m_hash), block.data() + at, piece) != 1) {
                Fail(L"EVP_DigestUpdate() failed rc = %d", kBadHashState, L"MD5FileHash::GetHash()");
            }
        }
    }
    if (!m_finalised) {
        unsigned int length = 0;
        m_value.resize(16);
        if (EVP_DigestFinal_ex(Context(m_hash), m_value.data(), &length) != 1 || length != 16) {
            Fail(L"EVP_DigestFinal_ex() failed rc = %d", kBadHashState, L"MD5FileHash::GetHash()");
        }
        m_finalised = true;
    }
    digest = m_value;
    return true;
}

} // namespace vela::common
