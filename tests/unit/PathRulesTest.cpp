#include "FileSystemTestSupport.h"

#include "kom/QRVException.h"

using namespace vela::kom;
using namespace vela::test;

namespace {

const std::wstring kCheckPath = L"PrinterDevice::CheckPath()";
const std::wstring kIsValidFileName = L"PrinterDevice::IsValidFileName()";

std::wstring NonBmp() {
    return vela::common::StringConverter::FromUtf8("\xF0\x9F\x98\x80");
} // U+1F600

class PathRules : public FileSystemTest {};

} // namespace

// Length (in UTF-16 code units), then the leading delimiter, then characters: the first broken wins.
TEST_F(PathRules, LengthThenDelimiterThenForbiddenCharacters) {
    const std::wstring longest = L"/" + std::wstring(255, L'a');
    std::wstring wide = L"/"; // 127 characters outside the basic plane: 254 code units
    for (int i = 0; i < 127; ++i) {
        wide += NonBmp();
    }
    const std::wstring length = kCheckPath + L": PathException: 'Invalid path length'";
    const std::wstring delimiter = kCheckPath + L": PathSeparatorException: 'PATH_DELIMITER not found'";
    std::vector<std::pair<std::wstring, std::wstring>> rows = {
        {longest, L""},
        {L"/", L""},
        {wide + L"b", L""},
        {L"//double//slashes/", L""},
        {L"/with space/file name.txt", L""},
        {L"/tab\there/\u00e9t\u00e9", L""}, // control characters and non-ASCII are not on the list
        {longest + L"a", length},
        {wide + NonBmp(), length},
        {std::wstring(257, L'a'), length}, // too long and relative
        {L"", length},                     // wraps round into the length rule
        {L"a/b", delimiter},
        {L" /x", delimiter},
        {L"\\x", delimiter},
    };
    for (wchar_t c : std::wstring(L"\\?*:|\"<>,")) {
        rows.push_back({std::wstring(L"/dir/a") + c + L"b",
                        kIsValidFileName + L": InvalidPathCharsException: 'Invalid path characters found'"});
    }
    for (const auto& [path, expected] : rows) {
        SCOPED_TRACE(Narrow(path));
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
