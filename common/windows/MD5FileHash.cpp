#include "common/MD5FileHash.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"

// wincrypt.h needs the base types of windows.h first.
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <vector>

namespace vela::common {

namespace {

[[noreturn]] void Fail(const wchar_t* format, const wchar_t* source) {
    LogAndThrow(MD5Exception(Format(format, static_cast<int32_t>(::GetLastError())), source));
}

} // namespace

MD5FileHash::MD5FileHash() {
    HCRYPTPROV provider = 0;
    if (!::CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
        Fail(L"CryptAcquireContext() failed rc = %d", L"MD5FileHash::MD5FileHash()");
    }
    m_provider = provider;
    HCRYPTHASH hash = 0;
    if (!::CryptCreateHash(provider, CALG_MD5, 0, 0, &hash)) {
        DWORD code = ::GetLastError();
        ::CryptReleaseContext(provider, 0);
        m_provider = 0;
        ::SetLastError(code);
        Fail(L"CryptCreateHash() failed rc = %d", L"MD5FileHash::MD5FileHash()");
    }
    m_hash = hash;
}

MD5FileHash::~MD5FileHash() {
    if (m_hash != 0) {
        ::CryptDestroyHash(static_cast<HCRYPTHASH>(m_hash));
    }
    if (m_provider != 0) {
        ::CryptReleaseContext(static_cast<HCRYPTPROV>(m_provider), 0);
    }
}

bool MD5FileHash::GetHash(const std::wstring& path, std::vector<uint8_t>& digest) {
    if (m_provider == 0 || m_hash == 0) {
        return false;
    }
    UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file.IsValid()) {
        Fail(L"CreateFile() failed rc = %d", L"MD5FileHash::GetHash()");
    }
    // Large reads keep the system calls few; the hash still takes the data in 1024-byte updates.
    std::vector<BYTE> block(kReadSize);
    for (;;) {
        DWORD got = 0;
        if (!::ReadFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &got, nullptr)) {
            Fail(L"ReadFile() failed rc = %d", L"MD5FileHash::GetHash()");
        }
        if (got == 0) {
            break;
        }
        for (DWORD at = 0; at < got; at += kUpdateSize) {
            const DWORD piece = std::min<DWORD>(kUpdateSize, got - at);
            // One object digests one file: the provider refuses data once the value was read.
            if (!::CryptHashData(static_cast<HCRYPTHASH>(m_hash), block.data() + at, piece, 0)) {
                Fail(L"CryptHashData() failed rc = %d", L"MD5FileHash::GetHash()");
            }
        }
    }
    BYTE value[16];
    DWORD length = sizeof value;
    if (!::CryptGetHashParam(static_cast<HCRYPTHASH>(m_hash), HP_HASHVAL, value, &length, 0)) {
        Fail(L"CryptGetHashParam() failed rc = %d", L"MD5FileHash::GetHash()");
    }
    m_finalised = true;
    digest.assign(value, value + length);
    return true;
}

} // namespace vela::common
