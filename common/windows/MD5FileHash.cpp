#include "common/MD5FileHash.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"

// wincrypt.h needs the base types of windows.h first.
#include <windows.h>

#include <wincrypt.h>

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
    BYTE block[1024];
    for (;;) {
        DWORD got = 0;
        if (!::ReadFile(file.Get(), block, sizeof block, &got, nullptr)) {
            Fail(L"ReadFile() failed rc = %d", L"MD5FileHash::GetHash()");
        }
        if (got == 0) {
            break;
        }
        HashData(block, got, L"MD5FileHash::GetHash()");
    }
    HashValue(digest, L"MD5FileHash::GetHash()");
    return true;
}

bool MD5FileHash::Update(const uint8_t* data, size_t size) {
    if (m_provider == 0 || m_hash == 0) {
        return false;
    }
    HashData(data, size, L"MD5FileHash::Update()");
    return true;
}

bool MD5FileHash::Final(std::vector<uint8_t>& digest) {
    if (m_provider == 0 || m_hash == 0) {
        return false;
    }
    HashValue(digest, L"MD5FileHash::Final()");
    return true;
}

void MD5FileHash::HashData(const uint8_t* data, size_t size, const wchar_t* origin) {
    // CryptHashData takes a 32-bit length; larger pieces go in several steps. One object makes
    // one digest: the provider refuses data once the value was read.
    do {
        const DWORD piece = static_cast<DWORD>(size < 0x40000000u ? size : 0x40000000u);
        if (!::CryptHashData(static_cast<HCRYPTHASH>(m_hash), data, piece, 0)) {
            Fail(L"CryptHashData() failed rc = %d", origin);
        }
        data += piece;
        size -= piece;
    } while (size > 0);
}

void MD5FileHash::HashValue(std::vector<uint8_t>& digest, const wchar_t* origin) {
    BYTE value[16];
    DWORD length = sizeof value;
    if (!::CryptGetHashParam(static_cast<HCRYPTHASH>(m_hash), HP_HASHVAL, value, &length, 0)) {
        Fail(L"CryptGetHashParam() failed rc = %d", origin);
    }
    m_finalised = true;
    digest.assign(value, value + length);
}

} // namespace vela::common
