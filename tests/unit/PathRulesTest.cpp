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

TEST_F(PathRules, LengthIsCheckedFirstAndCountsUtf16CodeUnits) {
    const std::wstring longest = L"/" + std::wstring(255, L'a');
    EXPECT_NO_THROW(device.CheckPath(longest));
    EXPECT_NO_THROW(device.CheckPath(L"/"));
    ExpectThrow<PathException>([&] { device.CheckPath(longest + L"a"); }, L"'Invalid path length'",
                               kCheckPath);
    // Too long and relative: the length rule wins.
    ExpectThrow<PathException>([&] { device.CheckPath(std::wstring(257, L'a')); }, L"'Invalid path length'",
                               kCheckPath);
    // The empty path wraps round into the length rule, not the delimiter rule.
    ExpectThrow<PathException>([&] { device.CheckPath(L""); }, L"'Invalid path length'", kCheckPath);

    // A character outside the basic plane counts two, on every platform.
    std::wstring wide = L"/";
    for (int i = 0; i < 127; ++i) {
        wide += NonBmp();
    }
    EXPECT_NO_THROW(device.CheckPath(wide + L"b")); // 1 + 254 + 1 = 256
    ExpectThrow<PathException>([&] { device.CheckPath(wide + NonBmp()); }, L"'Invalid path length'",
                               kCheckPath); // 257
    EXPECT_TRUE(log.Contains(L"PrinterDevice::CheckPath(): PathException: 'Invalid path length'"));
}

TEST_F(PathRules, OnlyTheFirstCharacterMustBeTheDelimiter) {
    for (const wchar_t* relative : {L"a/b", L"images/x.png", L" /x", L"\\x"}) {
        SCOPED_TRACE(Narrow(relative));
        ExpectThrow<PathSeparatorException>([&] { device.CheckPath(relative); },
                                            L"'PATH_DELIMITER not found'", kCheckPath);
    }
    for (const wchar_t* accepted : {L"//double//slashes/", L"/with space/file name.txt", L"/trailing/"}) {
        EXPECT_NO_THROW(device.CheckPath(accepted)) << Narrow(accepted);
    }
}

TEST_F(PathRules, EachForbiddenCharacterIsRejectedUnderTheFileNameCheck) {
    for (const wchar_t* c : {L"\\", L"?", L"*", L":", L"|", L"\"", L"<", L">", L","}) {
        const std::wstring path = std::wstring(L"/dir/a") + c + L"b";
        SCOPED_TRACE(Narrow(path));
        ExpectThrow<InvalidPathCharsException>([&] { device.CheckPath(path); },
                                               L"'Invalid path characters found'", kIsValidFileName);
    }
    // Control characters and non-ASCII text are not on the list.
    EXPECT_NO_THROW(device.CheckPath(L"/tab\there/\u00e9t\u00e9"));
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
