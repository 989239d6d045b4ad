#include "FileSystemTestSupport.h"

#include "common/HostFile.h"

#include <filesystem>

using namespace vela::common;
using vela::test::ListDirectory;
using vela::test::ReadHostFile;
using vela::test::TempDir;
using vela::test::WriteHostFile;

namespace {

std::wstring Wide(const std::string& path) {
    return StringConverter::FromUtf8(path);
}

} // namespace

// The four classes themselves are checked through PutFile and GetFile; these are the odd names.
TEST(HostFileReader, NamesThatNameNoFileAndShortFiles) {
    TempDir dir;
    HostFileReader reader;
    EXPECT_EQ(reader.Open(L"").failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(reader.Open(std::wstring(L"a\0b", 3)).failure, HostFileFailure::other);

    WriteHostFile(dir.File("data.bin"), {1, 2, 3, 4, 5});
    ASSERT_FALSE(reader.Open(dir.WFile("data.bin")));
    uint8_t buffer[8] = {};
    EXPECT_EQ(reader.Read(buffer, sizeof buffer), 5u); // fewer at the end of the file
}

TEST(HostFileReplacer, TheTargetChangesOnlyOnCommit) {
    TempDir dir;
    WriteHostFile(dir.File("target.bin"), {9, 9, 9});
    {
        HostFileReplacer file;
        ASSERT_FALSE(file.Open(dir.WFile("target.bin")));
        ASSERT_TRUE(file.Write(reinterpret_cast<const uint8_t*>("new"), 3));
        // The temporary file sits beside the target, so the rename stays on one file system.
        EXPECT_EQ(std::filesystem::path(file.TemporaryPath()).parent_path(),
                  std::filesystem::path(dir.Path()));
        EXPECT_EQ(ReadHostFile(dir.File("target.bin")), (std::vector<uint8_t>{9, 9, 9}));
        EXPECT_EQ(ListDirectory(dir.Path()).size(), 2u);
    } // dropped without a commit
    EXPECT_EQ(ReadHostFile(dir.File("target.bin")), (std::vector<uint8_t>{9, 9, 9}));
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"target.bin"});

    HostFileReplacer file;
    ASSERT_FALSE(file.Open(dir.WFile("target.bin")));
    ASSERT_TRUE(file.Write(reinterpret_cast<const uint8_t*>("new"), 3));
    ASSERT_TRUE(file.Commit());
    EXPECT_EQ(ReadHostFile(dir.File("target.bin")), (std::vector<uint8_t>{'n', 'e', 'w'}));
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"target.bin"});

    HostFileReplacer fresh;
    ASSERT_FALSE(fresh.Open(dir.WFile("fresh.bin")));
    ASSERT_TRUE(fresh.Commit());
    EXPECT_TRUE(ReadHostFile(dir.File("fresh.bin")).empty());
}

TEST(HostFileReplacer, TargetsThatCouldNotBeOpenedForWritingAreRefusedUpFront) {
    TempDir dir;
    HostFileReplacer file;
    EXPECT_EQ(file.Open(dir.WFile("missing-folder/x.bin")).failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(file.Open(Wide(dir.Path())).failure, HostFileFailure::accessDenied);
    EXPECT_EQ(file.Open(L"").failure, HostFileFailure::pathNotFound);
    EXPECT_TRUE(ListDirectory(dir.Path()).empty());

    if (vela::test::RunningPrivileged()) {
        GTEST_SKIP() << "permission bits do not stop this user";
    }
    WriteHostFile(dir.File("readonly.bin"), {1});
    std::filesystem::permissions(dir.File("readonly.bin"), std::filesystem::perms::owner_read |
                                                               std::filesystem::perms::group_read |
                                                               std::filesystem::perms::others_read);
    EXPECT_EQ(file.Open(dir.WFile("readonly.bin")).failure, HostFileFailure::accessDenied);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"readonly.bin"});
    std::filesystem::permissions(dir.File("readonly.bin"), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
}
