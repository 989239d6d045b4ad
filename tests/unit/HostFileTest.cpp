#include "FileSystemTestSupport.h"

#include "common/HostFile.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace vela::common;

// The classes are met through PutFile and GetFile (access refusals with a folder): the odd names.
TEST(HostFile, NamesThatNameNoFile) {
    HostFileReader reader;
    EXPECT_EQ(reader.Open(L"").failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(reader.Open(std::wstring(L"a\0b", 3)).failure, HostFileFailure::other);
    HostFileReplacer writer;
    EXPECT_EQ(writer.Open(L"").failure, HostFileFailure::pathNotFound);
}

#ifndef _WIN32
// What only Linux shows: links, FIFOs, a write failure mid-get (a size limit for a full disk).
using namespace vela::test;
TEST(HostFileLinux, AFileWhereAFolderIsExpectedIsAMissingPath) {
    TempDir dir;
    WriteHostFile(dir.File("plain"), {1});
    EXPECT_EQ(HostFileReader().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(HostFileReplacer().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
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
        ExpectThrow<vela::kom::QRVException>([&] { device.GetFile(L"/big", dir.WFile("keep.bin")); },
                                             L"'Couldn't write the file: " + SystemErrorText(EFBIG) + L"'",
                                             L"PrinterDevice::SaveFile()");
    }
    EXPECT_EQ(ReadHostFile(dir.File("keep.bin")), old);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"keep.bin"});
    EXPECT_EQ(printer.PendingBytes(), 0u); // the rest of the reply was drained
    ExpectReleased();
}
#endif
