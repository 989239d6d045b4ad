#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::common {

class IMD5FileHash {
public:
    virtual ~IMD5FileHash() = default;
    // Replaces `digest` with the 16-byte MD5 of the host file. Returns false when the object
    // holds no provider or hash; throws MD5Exception on system failures. One object digests
    // one file: a second call fails in its hash step.
    virtual bool GetHash(const std::wstring& path, std::vector<uint8_t>& digest) = 0;
};

} // namespace vela::common
