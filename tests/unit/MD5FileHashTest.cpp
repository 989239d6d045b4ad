#include "common/MD5FileHash.h"
#include "common/Exception.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using vela::common::MD5Exception;
using vela::common::MD5FileHash;
using vela::test::LogCapture;
using vela::test::TempDir;

// The digest itself is checked by the simulator on every put (it hashes what arrives on its own).
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
