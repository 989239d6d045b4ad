#pragma once

#include "common/IMD5FileHash.h"
#include "common/NotCopyable.h"

#include <cstddef>
#include <cstdint>

namespace vela::common {

// MD5 of a host file through the system's crypto provider: CryptoAPI on Windows, OpenSSL's
// libcrypto on Linux. Blocks on file reads. Not thread-safe; one object per file.
//
// Besides whole files, the object digests bytes handed to it piece by piece (a file that is
// streamed to the printer is hashed while it goes out): Update any number of times, then Final.
// Either way one object makes one digest; after it the hash refuses more data (MD5Exception
// "CryptHashData() failed rc = %d").
class MD5FileHash : public IMD5FileHash, private NotCopyable {
public:
    MD5FileHash(); // throws MD5Exception
    ~MD5FileHash() override;
    bool GetHash(const std::wstring& path, std::vector<uint8_t>& digest) override;

    // Adds bytes to the digest. False when the object holds no provider or hash; MD5Exception
    // "CryptHashData() failed rc = %d" (origin "MD5FileHash::Update()") when the hash refuses them.
    bool Update(const uint8_t* data, size_t size);
    // Replaces `digest` with the 16-byte digest of everything added. False without provider or
    // hash; MD5Exception "CryptGetHashParam() failed rc = %d" (origin "MD5FileHash::Final()").
    bool Final(std::vector<uint8_t>& digest);

private:
    // The hash steps; failures name `origin`.
    void HashData(const uint8_t* data, size_t size, const wchar_t* origin);
    void HashValue(std::vector<uint8_t>& digest, const wchar_t* origin);

    // Windows: HCRYPTPROV and HCRYPTHASH. Linux: the EVP_MD_CTX (in m_hash); m_provider is
    // unused but keeps the "no provider" state meaningful on both.
    uintptr_t m_provider = 0;
    uintptr_t m_hash = 0;
    bool m_finalised = false;
    std::vector<uint8_t> m_value; // Linux: the finished digest (the provider keeps it on Windows)
};

} // namespace vela::common
