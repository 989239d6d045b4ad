#include "common/MD5FileHash.h"
#include "common/Exception.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using vela::common::MD5Exception;
using vela::common::MD5FileHash;
using vela::test::LogCapture;
using vela::test::TempDir;

namespace {

std::string Hex(const std::vector<uint8_t>& bytes) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (uint8_t b : bytes) {
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

std::string DigestOf(const TempDir& dir, const std::string& content) {
    std::string path = dir.File("input.bin");
    vela::test::WriteHostFile(path, std::vector<uint8_t>(content.begin(), content.end()));
    MD5FileHash hash;
    std::vector<uint8_t> digest{1, 2, 3}; // replaced, not appended to
    EXPECT_TRUE(hash.GetHash(dir.WFile("input.bin"), digest));
    return Hex(digest);
}

} // namespace

TEST(MD5FileHash, MatchesTheReferenceVectors) {
    TempDir dir;
    EXPECT_EQ(DigestOf(dir, ""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(DigestOf(dir, "abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(
        DigestOf(dir, "12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
        "57edf4a22be3c955ac49da2e2107b67a");
    // Many 1024-byte blocks and a partial last one.
    EXPECT_EQ(DigestOf(dir, std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(MD5FileHash, AMissingFileNamesTheSystemsOwnCall) {
    // Each system's failures name its own calls.
#ifdef _WIN32
    const std::wstring openFailed = L"CreateFile() failed rc = 2";
#else
    const std::wstring openFailed = L"open() failed rc = 2";
#endif
    TempDir dir;
    LogCapture log;
    MD5FileHash hash;
    std::vector<uint8_t> digest;
    try {
        hash.GetHash(dir.WFile("missing.bin"), digest);
        FAIL() << "expected MD5Exception";
    } catch (const MD5Exception& e) {
        EXPECT_EQ(e.Message(), openFailed); // file not found on both platforms
        EXPECT_EQ(e.Source(), L"MD5FileHash::GetHash()");
    }
    EXPECT_TRUE(log.Contains(L"MD5FileHash::GetHash(): MD5Exception: " + openFailed));
}
