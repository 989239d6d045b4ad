#pragma once

#include "common/IMD5FileHash.h"
#include "common/NotCopyable.h"

#include <cstddef>
#include <cstdint>

namespace vela::common {

// MD5 of a host file through the system's crypto provider: CryptoAPI on Windows, OpenSSL's
// libcrypto on Linux. Blocks on file reads. Not thread-safe; one object per file.
class MD5FileHash : public IMD5FileHash, private NotCopyable {
public:
    MD5FileHash(); // throws MD5Exception
    ~MD5FileHash() override;
    bool GetHash(const std::wstring& path, std::vector<uint8_t>& digest) override;

    // The file is read in blocks of kReadSize and handed to the hash kUpdateSize bytes at a time.
    static constexpr size_t kReadSize = 256 * 1024;
    static constexpr size_t kUpdateSize = 1024;

private:
    // Windows: HCRYPTPROV and HCRYPTHASH. Linux: the EVP_MD_CTX (in m_hash); m_provider is
    // unused but keeps the "no provider" state meaningful on both.
    uintptr_t m_provider = 0;
    uintptr_t m_hash = 0;
    bool m_finalised = false;
    std::vector<uint8_t> m_value; // Linux: the finished digest (the provider keeps it on Windows)
};

} // namespace vela::common
