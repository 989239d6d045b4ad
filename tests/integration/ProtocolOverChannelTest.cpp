// The protocol class over the production channel and access lock, against the simulated printer
// on the operating system's own channel: every byte the library frames is parsed by the
// printer's independent code, so a framing mistake shows up as a violation or a failed reply.
#include "common/StringConverter.h"
#include "support/PauseRecorder.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace vela::test;
using vela::common::StringConverter;

TEST(ProtocolOverChannel, FilesRoundTripByteForByteAtThePacketAndChunkBoundaries) {
    PauseRecorder pauses;
    SimulatedPrinter printer;
    TempDir dir;
    vela::kom::QRVDevice& device = printer.Device();
    const std::wstring folder = device.GetImageLibraryPath();
    // Sizes around the 512-byte packet rule (737 bytes make a put of exactly 1024, which goes out
    // padded), the 8192-byte chunk and a multi-MiB file.
    const size_t sizes[] = {0, 511, 512, 737, 8192, 3 * 1024 * 1024 + 17};
    unsigned seed = 1;
    for (size_t size : sizes) {
        SCOPED_TRACE(size);
        const std::vector<uint8_t> content = TestBytes(size, seed++);
        const std::string name = "file" + std::to_string(size) + ".bin";
        WriteHostFile(dir.File(name), content);
        const std::wstring printerPath = folder + L"/" + StringConverter::FromUtf8(name);
        ASSERT_EQ(device.PutFile(printerPath, dir.WFile(name)), 0);
        EXPECT_EQ(printer.Printer().ReadFile(StringConverter::ToUtf8(printerPath)), std::optional(content));
        ASSERT_EQ(device.GetFile(printerPath, dir.WFile("back.bin")), 0);
        EXPECT_EQ(ReadHostFile(dir.File("back.bin")), content);
    }
    EXPECT_EQ(ListDirectory(dir.Path()).size(), std::size(sizes) + 1); // no temporaries left
    EXPECT_EQ(pauses.Pauses().front(), 250u); // completion polls start with their short wait
    EXPECT_TRUE(printer.Printer().Violations().empty());
}
