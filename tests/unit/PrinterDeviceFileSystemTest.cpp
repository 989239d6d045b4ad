#include "common/HostFile.h"
#include "common/MD5FileHash.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"
#include "kom/filesystem/FolderListingParser.h"
#include "support/ProtocolFixture.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

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

// The 257-byte path field built independently of the library.
std::vector<uint8_t> PathField(const std::string& utf8) {
    std::vector<uint8_t> field(utf8.begin(), utf8.end());
    field.resize(257, 0x00);
    return field;
}

std::vector<uint8_t> Concat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> all;
    for (const auto& p : parts) {
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

std::vector<uint8_t> LittleEndian32(uint32_t v) {
    return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
}

// The completion poll that follows every file-system request.
const std::vector<uint8_t> kPoll = Hex("C3 00 00 00 09 60 04 01 80");

std::vector<uint8_t> PathRequest(uint8_t command, const std::string& path) {
    return Concat({Hex("C3 00 00 01 0A 60 04 01"), {command}, PathField(path)});
}

// Payload of a get reply: a path field, the data's length, the data and `trailing` extra bytes.
std::vector<uint8_t> FileReplyPayload(const std::vector<uint8_t>& data, size_t trailing = 0) {
    return Concat({{0x00, 0x21},
                   PathField("/x"),
                   LittleEndian32(static_cast<uint32_t>(data.size())),
                   data,
                   std::vector<uint8_t>(trailing, 0xEE)});
}

class FileSystemTest : public ProtocolFixture {
protected:
    TempDir dir;
};

using FileTransfer = FileSystemTest;
using FileDigest = FileSystemTest;
using HostFileLinux = FileSystemTest;
using GetWriteFailure = FileSystemTest;
using FolderOperations = FileSystemTest;
using FolderListingParser = FileSystemTest;
using PathRules = FileSystemTest;

const std::wstring kListing = L"PrinterDevice::GetFolderContent()";

std::vector<FolderListingEntry> Parse(const std::string& text) {
    return ParseFolderListing(reinterpret_cast<const uint8_t*>(text.data()), text.size(), kListing);
}

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

        std::vector<uint8_t> digest;
        vela::common::MD5FileHash().GetHash(dir.WFile("f.bin"), digest);
        auto expected = Concat({{0xC3, uint8_t(c.total >> 24), uint8_t(c.total >> 16), uint8_t(c.total >> 8),
                                 uint8_t(c.total), 0x60, 0x04, 0x01, 0x31, 0x01},
                                PathField(c.path),
                                LittleEndian32(static_cast<uint32_t>(data.size())),
                                data,
                                digest});
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

// What runs during the flush (a get's digest) reads the written bytes in place; when it fails,
// the target keeps its old contents and the temporary file goes.
TEST_F(FileDigest, WorkDuringTheFlushSeesTheBytesAndItsFailureReplacesNothing) {
    WriteHostFile(dir.File("target"), {1});
    const std::vector<uint8_t> bytes{'x', 'y'};
    for (const bool fail : {true, false}) {
        HostFileReplacer writer;
        ASSERT_FALSE(writer.Open(dir.WFile("target")));
        ASSERT_TRUE(writer.Write(bytes.data(), bytes.size()));
        const auto read = [&](const std::wstring& file) {
            EXPECT_EQ(ReadHostFile(vela::common::StringConverter::ToUtf8(file)), bytes);
            if (fail) {
                throw std::runtime_error("unreadable");
            }
        };
        if (fail) {
            EXPECT_THROW(writer.Commit(read), std::runtime_error);
        } else {
            EXPECT_TRUE(writer.Commit(read));
        }
        EXPECT_EQ(ReadHostFile(dir.File("target")), fail ? std::vector<uint8_t>{1} : bytes);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.File("")), {}), 1);
}

#ifndef _WIN32
// What only Linux shows: links, FIFOs, a write failure mid-get (a size limit for a full disk).
TEST_F(HostFileLinux, AFileInThePathIsAMissingPathAndAReplacedFileKeepsItsModeAndItsLinks) {
    WriteHostFile(dir.File("plain"), {1});
    EXPECT_EQ(HostFileReader().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);
    EXPECT_EQ(HostFileReplacer().Open(dir.WFile("plain/x")).failure, HostFileFailure::pathNotFound);

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

TEST_F(FolderListingParser, SizesConvertLikeACIntegerConversionAndTypeLettersAgreeWithThem) {
    std::vector<int32_t> sizes;
    for (const auto& entry : Parse("a:12ab:f,b:abc:f,c: -7:f,d:99999999999:f,e:-99999999999:f,")) {
        EXPECT_TRUE(entry.isFile); // also where the size field is not a number
        sizes.push_back(entry.size);
    }
    EXPECT_EQ(sizes, (std::vector<int32_t>{12, 0, -7, INT32_MAX, INT32_MIN}));

    // The type letter must agree with the size.
    ExpectThrow<ReplyException>([] { Parse("a:5:d,"); }, L"'Found directory instead of file name'", kListing);
    ExpectThrow<ReplyException>([] { Parse("docs::f,"); }, L"'Found file name instead of directory'",
                                kListing);
    // Without a second colon the letter examined is the byte after the entry's comma.
    ExpectThrow<ReplyException>([] { Parse("x:5,d:1:f,"); }, L"'Found directory instead of file name'",
                                kListing);
    ExpectThrow<ReplyException>([] { Parse("x:,f"); }, L"'Found file name instead of directory'", kListing);
    auto atEnd = Parse("x:5,");
    ASSERT_EQ(atEnd.size(), 1u);
    EXPECT_EQ(atEnd[0].size, 5);
    // Other letters are not examined.
    EXPECT_EQ(Parse("a:1:x,b::?,").size(), 2u);
}

TEST_F(FolderOperations, ListingPausesUnderTheLockThenSendsBothRequests) {
    printer.QueueCompletion(2, 0);
    const std::string listing = "a.txt:12:f,no colon,\xC3\xA9t\xC3\xA9::d,unfinished";
    printer.QueueReply(
        Concat({{0x00, 0x22}, PathField("/x"), std::vector<uint8_t>(listing.begin(), listing.end())}));
    std::vector<std::tuple<std::wstring, bool, bool, int32_t>> seen;
    for (const auto& entry : device.GetFolderContent(L"/mnt/data/images")) {
        seen.emplace_back(entry->Name(), entry->IsFile(), entry->IsDirectory(), entry->Size());
    }
    EXPECT_EQ(seen, (decltype(seen){{L"a.txt", true, false, 12}, {L"\u00e9t\u00e9", false, true, 0}}));

    EXPECT_EQ(ToHex(printer.AllWritten()), ToHex(Concat({PathRequest(0x2A, "/mnt/data/images"), kPoll,
                                                         PathRequest(0x22, "/mnt/data/images")})));
    EXPECT_EQ(pauses.Pauses(), (std::vector<uint32_t>{1000, 250})); // the listing's pause, then the poll's
    ExpectReleased();
    EXPECT_TRUE(log.Contains(L"PrinterDevice::GetFolderContent()"));
}

TEST_F(FolderOperations, AFailedFirstCompletionGivesAnEmptyListAndNoSecondRequest) {
    printer.QueueCompletion(2, 8);
    EXPECT_TRUE(device.GetFolderContent(L"/x").empty());
    EXPECT_EQ(printer.AllWritten().size(), 266u + 9u);
    ExpectReleased();
}

TEST_F(FolderOperations, DeleteAndRenameSendTheirRequestsAndReturnTheCompletionResult) {
    printer.QueueCompletion(2, 0);
    EXPECT_EQ(device.DeleteFile(L"/jobs/old.job"), 0);
    EXPECT_EQ(ToHex(printer.AllWritten()), ToHex(Concat({PathRequest(0x32, "/jobs/old.job"), kPoll})));

    const size_t before = printer.AllWritten().size();
    printer.QueueCompletion(2, 12);
    EXPECT_EQ(device.RenameFile(L"/a/old", L"/a/new"), 12);
    const auto written = printer.AllWritten();
    const auto expected =
        Concat({Hex("C3 00 00 02 0B 60 04 01 33"), PathField("/a/old"), PathField("/a/new"), kPoll});
    EXPECT_EQ(ToHex(std::vector<uint8_t>(written.begin() + before, written.end())), ToHex(expected));
    ExpectReleased();
}

// The four names and their selectors are read from the simulator by qrvctl info.
TEST_F(FolderOperations, FolderDetailRefusesAnotherCommandAndANameWithoutItsZero) {
    const std::wstring source = L"PrinterDevice::GetFolderDetail()";
    const auto reply = [](uint8_t command, const std::string& tail) {
        return Concat({{0x00, command, 1, 2, 3, 4, 5}, std::vector<uint8_t>(tail.begin(), tail.end())});
    };
    printer.QueueReply(reply(0x24, std::string("/x\0", 3)));
    ExpectThrow<ReplyException>([&] { device.GetFolderDetail(7); }, L"'Wrong reply'", source);
    printer.QueueReply(reply(0x23, "/no/zero"));
    ExpectThrow<PathException>([&] { device.GetFolderDetail(7); }, L"'No path name delimiter found'", source);
    ExpectReleased();
}

TEST_F(FolderOperations, DiskSpaceDecodesBothCountsOfAnExact18ByteReply) {
    const std::wstring source = L"PrinterDevice::GetDiskSpace()";
    const auto reply = [](uint8_t command) {
        return Concat({{0x00, command}, Hex("08 07 06 05 04 03 02 01"), Hex("FF 00 00 00 00 00 00 80")});
    };
    printer.QueueReply(reply(0x28));
    uint64_t first = 0, second = 0;
    device.GetDiskSpace(first, second);
    EXPECT_EQ(first, 0x0102030405060708u);
    EXPECT_EQ(second, 0x80000000000000FFu);
    EXPECT_EQ(ToHex(printer.AllWritten()), "C3 00 00 00 09 60 04 01 24");

    // The printer answers with 0x28, so an echo of the query's 0x24 is wrong.
    printer.QueueReply(reply(0x24));
    ExpectThrow<ReplyException>([&] { device.GetDiskSpace(first, second); }, L"'Wrong reply'", source);
    ExpectReleased();
}

// Length (in UTF-16 code units), then the leading delimiter, then characters: the first broken wins.
TEST_F(PathRules, LengthThenDelimiterThenForbiddenCharacters) {
    const std::wstring longest = L"/" + std::wstring(255, L'a');
    const std::wstring nonBmp = vela::common::StringConverter::FromUtf8("\xF0\x9F\x98\x80"); // U+1F600
    std::wstring wide = L"/"; // 127 characters outside the basic plane: 254 code units
    for (int i = 0; i < 127; ++i) {
        wide += nonBmp;
    }
    const std::wstring length = L"PrinterDevice::CheckPath(): PathException: 'Invalid path length'";
    const std::wstring delimiter =
        L"PrinterDevice::CheckPath(): PathSeparatorException: 'PATH_DELIMITER not found'";
    std::vector<std::pair<std::wstring, std::wstring>> rows = {
        {longest, L""},
        {L"/", L""},
        {wide + L"b", L""},
        {L"//double//slashes/", L""},
        {L"/with space/file name.txt", L""},
        {L"/tab\there/\u00e9t\u00e9", L""}, // control characters and non-ASCII are not on the list
        {longest + L"a", length},
        {wide + nonBmp, length},
        {std::wstring(257, L'a'), length}, // too long and relative
        {L"", length},                     // wraps round into the length rule
        {L"a/b", delimiter},
        {L" /x", delimiter},
        {L"\\x", delimiter},
    };
    for (wchar_t c : std::wstring(L"\\?*:|\"<>,")) {
        rows.push_back({std::wstring(L"/dir/a") + c + L"b",
                        L"PrinterDevice::IsValidFileName(): InvalidPathCharsException: 'Invalid path "
                        L"characters found'"});
    }
    for (const auto& [path, expected] : rows) {
        SCOPED_TRACE(vela::common::StringConverter::ToUtf8(path));
        std::wstring failure;
        try {
            device.CheckPath(path);
        } catch (const vela::common::Exception& e) {
            failure = e.Source() + L": " + e.ExceptionName() + L": " + e.Message();
        }
        EXPECT_EQ(failure, expected);
        EXPECT_TRUE(expected.empty() || log.Contains(expected));
    }
}

TEST_F(PathRules, ABadPathNeverReachesTheLockOrTheWire) {
    const std::wstring host = dir.WFile("host.bin");
    WriteHostFile(dir.File("host.bin"), {1, 2, 3});
    EXPECT_THROW(device.PutFile(L"relative", host), PathSeparatorException);
    EXPECT_THROW(device.GetFile(L"/a:b", host), InvalidPathCharsException);
    EXPECT_THROW(device.DeleteFile(L""), PathException);
    EXPECT_THROW(device.GetFolderContent(L"/a*"), InvalidPathCharsException);
    // The old path is checked first; a valid old path does not let a bad new one through.
    EXPECT_THROW(device.RenameFile(L"old", L""), PathSeparatorException);
    EXPECT_THROW(device.RenameFile(L"/old", L"new"), PathSeparatorException);

    EXPECT_EQ(NoOpSynchronizer::Taken(), 0);
    EXPECT_EQ(printer.Opens(), 0);
    EXPECT_TRUE(printer.RawWrites().empty());
    EXPECT_TRUE(pauses.Pauses().empty()); // not even the listing's pause
    EXPECT_EQ(ReadHostFile(dir.File("host.bin")), (std::vector<uint8_t>{1, 2, 3}));
}
