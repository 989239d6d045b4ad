#include "FileSystemTestSupport.h"

#include "common/HostFile.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <filesystem>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace vela::common;
using vela::test::ListDirectory;
using vela::test::ReadHostFile;
using vela::test::TempDir;
using vela::test::WriteHostFile;

// The four classes themselves are checked through PutFile and GetFile; these are the odd names.
TEST(HostFileReader, NamesThatNameNoFile) {
    HostFileReader reader;
    EXPECT_EQ(reader.Open(L"").failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(reader.Open(std::wstring(L"a\0b", 3)).failure, HostFileFailure::other);
}

// A missing folder and a folder as target are refused through GetFile (FileTransferTest).
TEST(HostFileReplacer, AReadOnlyTargetIsRefusedUpFront) {
    TempDir dir;
    HostFileReplacer file;
    EXPECT_EQ(file.Open(L"").failure, HostFileFailure::pathNotFound);
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

#ifndef _WIN32
// What only Linux can show: permission bits, symbolic links, FIFOs, and a write failure in the
// middle of a get (a file size limit stands in for a full disk).
using namespace vela::test;
TEST(HostFileLinux, PermissionAndFolderErrorsMapLikeTheirWindowsCodes) {
    TempDir dir;
    WriteHostFile(dir.File("plain"), {1});
    HostFileReader reader;
    // A file where a folder is expected: the path does not exist.
    EXPECT_EQ(reader.Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
    HostFileReplacer writer;
    EXPECT_EQ(writer.Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);

    if (RunningPrivileged()) {
        GTEST_SKIP() << "permission bits do not stop root";
    }
    ASSERT_EQ(::chmod(dir.File("plain").c_str(), 0), 0);
    EXPECT_EQ(reader.Open(dir.WFile("plain")).failure, HostFileFailure::accessDenied);
    ASSERT_EQ(::mkdir(dir.File("locked").c_str(), 0500), 0);
    EXPECT_EQ(writer.Open(dir.WFile("locked/x")).failure, HostFileFailure::accessDenied);
}

TEST(HostFileLinux, AReplacedFileKeepsItsModeAndItsLinks) {
    TempDir dir;
    WriteHostFile(dir.File("real"), {1});
    ASSERT_EQ(::chmod(dir.File("real").c_str(), 0640), 0);
    ASSERT_EQ(::symlink("real", dir.File("link").c_str()), 0);

    HostFileReplacer writer;
    ASSERT_FALSE(writer.Open(dir.WFile("link")));
    ASSERT_TRUE(writer.Write(reinterpret_cast<const uint8_t*>("xy"), 2));
    ASSERT_TRUE(writer.Commit());

    struct stat info {};
    ASSERT_EQ(::lstat(dir.File("link").c_str(), &info), 0);
    EXPECT_TRUE(S_ISLNK(info.st_mode)); // written through the link, as a plain open would
    ASSERT_EQ(::stat(dir.File("real").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(ReadHostFile(dir.File("real")), (std::vector<uint8_t>{'x', 'y'}));

    // A FIFO is neither read into a hang nor replaced by a regular file.
    ASSERT_EQ(::mkfifo(dir.File("fifo").c_str(), 0600), 0);
    EXPECT_EQ(writer.Open(dir.WFile("fifo")).failure, HostFileFailure::other);
    ASSERT_TRUE(HostFileExists(dir.File("fifo")));
}

namespace {

// Makes writes beyond `bytes` fail with EFBIG while it lives, as a full disk would.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &m_old);
        m_oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = m_old;
        limited.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_oldHandler);
    }

private:
    rlimit m_old{};
    void (*m_oldHandler)(int) = nullptr;
};

class GetWriteFailure : public FileSystemTest {};

} // namespace

TEST_F(GetWriteFailure, IsReportedWithItsCauseAndLeavesTheOldFile) {
    const std::vector<uint8_t> old(1000, 0x55);
    WriteHostFile(dir.File("keep.bin"), old);
    printer.QueueCompletion(2, 0);
    printer.QueueReply(FileReplyPayload(std::vector<uint8_t>(600 * 1024, 0xAB)));
    {
        FileSizeLimit limit(100 * 1024);
        EXPECT_TRUE(ThrowsExactly<vela::kom::QRVException>(
            [&] { device.GetFile(L"/big", dir.WFile("keep.bin")); },
            L"'Couldn't write the file: " + SystemErrorText(EFBIG) + L"'", L"PrinterDevice::SaveFile()"));
    }
    EXPECT_EQ(ReadHostFile(dir.File("keep.bin")), old);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"keep.bin"});
    EXPECT_EQ(printer.PendingBytes(), 0u); // the rest of the reply was drained
    ExpectReleased();
}
#endif
