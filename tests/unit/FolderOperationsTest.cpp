#include "FileSystemTestSupport.h"

#include "kom/QRVException.h"
#include "kom/filesystem/FolderListingParser.h"

#include <climits>

using namespace vela::kom;
using namespace vela::test;

namespace {

const std::wstring kListing = L"PrinterDevice::GetFolderContent()";

std::vector<FolderListingEntry> Parse(const std::string& text) {
    return ParseFolderListing(reinterpret_cast<const uint8_t*>(text.data()), text.size(), kListing);
}

class FolderOperations : public FileSystemTest {};
using FolderListingParser = FileSystemTest;

} // namespace

TEST_F(FolderListingParser, SizesConvertLikeACIntegerConversion) {
    auto entries = Parse("a:12ab:f,b:abc:f,c: -7:f,d:99999999999:f,e:-99999999999:f,");
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[0].size, 12);
    EXPECT_EQ(entries[1].size, 0);
    EXPECT_TRUE(entries[1].isFile); // a size field that is not a number still makes a file
    EXPECT_EQ(entries[2].size, -7);
    EXPECT_EQ(entries[3].size, INT32_MAX);
    EXPECT_EQ(entries[4].size, INT32_MIN);
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
    auto content = device.GetFolderContent(L"/mnt/data/images");

    ASSERT_EQ(content.size(), 2u);
    EXPECT_EQ(content[0]->Name(), L"a.txt");
    EXPECT_TRUE(content[0]->IsFile());
    EXPECT_FALSE(content[0]->IsDirectory());
    EXPECT_EQ(content[0]->Size(), 12);
    EXPECT_EQ(content[1]->Name(), L"\u00e9t\u00e9");
    EXPECT_TRUE(content[1]->IsDirectory());

    EXPECT_EQ(ToHex(printer.AllWritten()), ToHex(Concat({PathRequest(0x2A, "/mnt/data/images"), kPoll,
                                                         PathRequest(0x22, "/mnt/data/images")})));
    ASSERT_FALSE(pauses.Pauses().empty());
    EXPECT_EQ(pauses.Pauses().front(), 1000u);
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
