#include "FileSystemTestSupport.h"

#include "common/HostFile.h"
#include "common/MD5FileHash.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"

#include <algorithm>
#include <filesystem>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace vela::kom;
using namespace vela::test;
using vela::common::HostFileFailure;
using vela::common::HostFileReader;
using vela::common::HostFileReplacer;
using vela::common::LogLevel;

namespace {

std::vector<uint8_t> Digest(const std::wstring& file) {
    vela::common::MD5FileHash hash;
    std::vector<uint8_t> digest;
    hash.GetHash(file, digest);
    return digest;
}

using FileTransfer = FileSystemTest;
using FileDigest = FileSystemTest;
using HostFileLinux = FileSystemTest;
using GetWriteFailure = FileSystemTest;

} // namespace

// Wherever the late-written digest falls, the chunks are those of one write of the whole message.
TEST_F(FileTransfer, PutCarriesBothLengthsTheDataAndTheDigestInTheChunksOfOneWrite) {
    std::string cut = "/ab"; // 300 bytes: the path field keeps 257, without a zero, inside a character
    while (cut.size() < 300) {
        cut += "\xE2\x82\xAC";
    }
    const struct {
        const char* what;
        size_t total; // message length
        uint8_t result = 0;
        std::string path = "/d/f.bin";
    } cases[] = {
        {"an empty file, a path cut to the field", 287, 0, cut},
        {"one chunk exactly (a multiple of 512: padded)", 8192},
        {"two chunks exactly (padded)", 16384},
        {"digest across the chunk boundary", 16384 + 5},
        {"digest right behind the boundary", 16384 + 16},
        {"a multiple of 512 inside a chunk (padded)", 16384 + 1024},
        {"many chunks", 287 + 70000, 9},
        {"several read blocks (padded)", 2 * 262144 + 512},
    };
    std::vector<std::pair<uint64_t, uint64_t>> progress;
    device.SetProgressCallback([&](uint64_t done, uint64_t total) { progress.emplace_back(done, total); });
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto data = TestBytes(c.total - 287);
        WriteHostFile(dir.File("f.bin"), data);
        printer.ClearWrites();
        progress.clear();
        printer.QueueCompletion(2, c.result);
        ASSERT_EQ(device.PutFile(vela::common::StringConverter::FromUtf8(c.path), dir.WFile("f.bin")),
                  c.result);

        auto expected = Concat({{0xC3, uint8_t(c.total >> 24), uint8_t(c.total >> 16), uint8_t(c.total >> 8),
                                 uint8_t(c.total), 0x60, 0x04, 0x01, 0x31, 0x01},
                                PathField(c.path),
                                LittleEndian32(static_cast<uint32_t>(data.size())),
                                data,
                                Digest(dir.WFile("f.bin"))});
        if (c.total % 512 == 0) {
            expected.push_back(0x00); // the pad byte
        }
        std::vector<std::vector<uint8_t>> chunks; // 8 KiB each, then the poll
        for (size_t at = 0; at < expected.size(); at += 8192) {
            chunks.emplace_back(expected.begin() + at,
                                expected.begin() + std::min(at + 8192, expected.size()));
        }
        chunks.push_back(kPoll);
        EXPECT_TRUE(printer.RawWrites() == chunks);
        if (c.result != 0) { // the row with many chunks: one report per chunk
            const uint64_t n = data.size();
            ASSERT_EQ(progress.size(), (c.total + 8191) / 8192);
            EXPECT_EQ(progress.front(), std::make_pair(uint64_t{8192 - 271}, n));
            EXPECT_EQ(progress.back(), std::make_pair(n, n));
        }
    }
    ExpectReleased();
    EXPECT_TRUE(log.Contains(L"PrinterDevice::PutFile()"));
    EXPECT_EQ(log.Lines().front().level, LogLevel::info);
}

TEST_F(FileTransfer, HostFilesThatCannotBeReadMapToTheirKinds) {
    const std::wstring source = L"PrinterDevice::LoadFile()";
    WriteHostFile(dir.File("huge.bin"), {});
    std::filesystem::resize_file(dir.File("huge.bin"), (uint64_t{1} << 32) - 287 + 1); // sparse
    ExpectThrow<QRVException>([&] { device.PutFile(L"/f", dir.WFile("huge.bin")); }, L"'File too large'",
                              source); // refused before it is read: beyond the 32-bit length field
    ExpectThrow<FileNotFoundException>([&] { device.PutFile(L"/f", dir.WFile("missing.bin")); },
                                       L"'Couldn't open file'", source);
    ExpectThrow<PathNotFoundException>(
        [&] { device.PutFile(L"/f", dir.WFile("no-such-folder/missing.bin")); }, L"'Couldn't open path'",
        source);
    // A folder is refused as "access denied" on every platform.
    ExpectThrow<NoPermissionException>(
        [&] { device.PutFile(L"/f", vela::common::StringConverter::FromUtf8(dir.Path())); },
        L"'Access denied'", source);
    EXPECT_TRUE(printer.RawWrites().empty());
    ExpectReleased();
}

TEST_F(FileTransfer, GetReplacesTheHostFileAndReportsTheBytesReceived) {
    WriteHostFile(dir.File("keep.bin"), TestBytes(5000));
    const auto data = TestBytes(600 * 1024);
    std::vector<std::pair<uint64_t, uint64_t>> progress;
    device.SetProgressCallback([&](uint64_t done, uint64_t total) { progress.emplace_back(done, total); });
    printer.QueueCompletion(2, 0);
    printer.QueueReply(FileReplyPayload(data, 40)); // bytes after the data are not saved
    EXPECT_EQ(device.GetFile(L"/jobs/a.job", dir.WFile("keep.bin")), 0);

    EXPECT_TRUE(ReadHostFile(dir.File("keep.bin")) == data);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"keep.bin"});
    EXPECT_EQ(ToHex(printer.AllWritten()),
              ToHex(Concat({PathRequest(0x29, "/jobs/a.job"), kPoll, PathRequest(0x21, "/jobs/a.job")})));
    EXPECT_EQ(printer.PendingBytes(), 0u);
    const uint64_t n = data.size();
    EXPECT_EQ(progress, (std::vector<std::pair<uint64_t, uint64_t>>{{262144, n}, {524288, n}, {n, n}}));
    ExpectReleased();
    EXPECT_TRUE(log.Contains(L"PrinterDevice::GetFile()"));
}

TEST_F(FileTransfer, AFailedFirstCompletionEndsTheGetBeforeAnyHostFileIsTouched) {
    const auto keeper = TestBytes(5000);
    WriteHostFile(dir.File("keep.bin"), keeper);
    printer.QueueCompletion(2, 9);
    EXPECT_EQ(device.GetFile(L"/a", dir.WFile("keep.bin")), 9);
    printer.QueueCompletion(2, 200);
    EXPECT_EQ(device.GetFile(L"/a", dir.WFile("new.bin")), 200);

    EXPECT_TRUE(ReadHostFile(dir.File("keep.bin")) == keeper);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"keep.bin"});
    const auto once = Concat({PathRequest(0x29, "/a"), kPoll});
    EXPECT_EQ(ToHex(printer.AllWritten()), ToHex(Concat({once, once})));
    ExpectReleased();
}

TEST_F(FileTransfer, HostFilesThatCannotBeWrittenMapToTheirKindsAfterTheWholeReply) {
    const std::wstring save = L"PrinterDevice::SaveFile()";
    printer.QueueCompletion(2, 0);
    printer.QueueReply(FileReplyPayload(TestBytes(3000)));
    ExpectThrow<PathNotFoundException>([&] { device.GetFile(L"/a", dir.WFile("nowhere/x.bin")); },
                                       L"'Couldn't open path'", save);
    EXPECT_EQ(printer.PendingBytes(), 0u);

    printer.QueueCompletion(2, 0);
    printer.QueueReply(FileReplyPayload(TestBytes(3000)));
    ExpectThrow<NoPermissionException>(
        [&] { device.GetFile(L"/a", vela::common::StringConverter::FromUtf8(dir.Path())); },
        L"'Access denied'", save);
    EXPECT_EQ(printer.PendingBytes(), 0u);
    EXPECT_TRUE(ListDirectory(dir.Path()).empty());
    ExpectReleased();
}

// The digest itself is checked by the simulator on every put (it hashes what arrives on its own).
TEST_F(FileDigest, AMissingFileNamesTheSystemsOwnCall) {
#ifdef _WIN32
    const std::wstring openFailed = L"CreateFile() failed rc = 2";
#else
    const std::wstring openFailed = L"open() failed rc = 2";
#endif
    std::vector<uint8_t> digest;
    ExpectThrow<vela::common::MD5Exception>(
        [&] { vela::common::MD5FileHash().GetHash(dir.WFile("missing.bin"), digest); }, openFailed,
        L"MD5FileHash::GetHash()");
}

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
TEST_F(HostFileLinux, AFileWhereAFolderIsExpectedIsAMissingPath) {
    WriteHostFile(dir.File("plain"), {1});
    EXPECT_EQ(HostFileReader().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(HostFileReplacer().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
}

TEST_F(HostFileLinux, AReplacedFileKeepsItsModeAndItsLinks) {
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

} // namespace

TEST_F(GetWriteFailure, IsReportedWithItsCauseAndLeavesTheOldFile) {
    const std::vector<uint8_t> old(1000, 0x55);
    WriteHostFile(dir.File("keep.bin"), old);
    printer.QueueCompletion(2, 0);
    printer.QueueReply(FileReplyPayload(std::vector<uint8_t>(600 * 1024, 0xAB)));
    {
        FileSizeLimit limit(100 * 1024);
        ExpectThrow<QRVException>([&] { device.GetFile(L"/big", dir.WFile("keep.bin")); },
                                  L"'Couldn't write the file: " + vela::common::SystemErrorText(EFBIG) + L"'",
                                  L"PrinterDevice::SaveFile()");
    }
    EXPECT_EQ(ReadHostFile(dir.File("keep.bin")), old);
    EXPECT_EQ(ListDirectory(dir.Path()), std::vector<std::string>{"keep.bin"});
    EXPECT_EQ(printer.PendingBytes(), 0u); // the rest of the reply was drained
    ExpectReleased();
}
#endif
