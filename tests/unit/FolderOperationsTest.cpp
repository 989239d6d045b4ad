#include "FileSystemTestSupport.h"

#include "kom/QRVException.h"
#include "kom/filesystem/FolderListingParser.h"

#include <climits>
#include <tuple>

using namespace vela::kom;
using namespace vela::test;

namespace {

const std::wstring kListing = L"PrinterDevice::GetFolderContent()";

std::vector<FolderListingEntry> Parse(const std::string& text) {
    return ParseFolderListing(reinterpret_cast<const uint8_t*>(text.data()), text.size(), kListing);
}

using FolderOperations = FileSystemTest;
using FolderListingParser = FileSystemTest;
using PathRules = FileSystemTest;

} // namespace

TEST_F(FolderListingParser, SizesConvertLikeACIntegerConversion) {
    std::vector<int32_t> sizes;
    for (const auto& entry : Parse("a:12ab:f,b:abc:f,c: -7:f,d:99999999999:f,e:-99999999999:f,")) {
        EXPECT_TRUE(entry.isFile); // also where the size field is not a number
        sizes.push_back(entry.size);
    }
    EXPECT_EQ(sizes, (std::vector<int32_t>{12, 0, -7, INT32_MAX, INT32_MIN}));
}

TEST_F(FolderListingParser, TypeLettersMustAgreeWithTheSize) {
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
    printer.QueueReply(ListingReplyPayload("a.txt:12:f,no colon,\xC3\xA9t\xC3\xA9::d,unfinished"));
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
