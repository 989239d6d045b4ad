// The protocol class over the production channel and access lock, against the simulated printer
// on the operating system's own channel: every byte the library frames is parsed by the
// printer's independent code, so a framing mistake shows up as a violation or a failed reply.
#include "kom/connection/QRVDevice.h"
#include "sim/Simulator.h"
#include "support/PauseRecorder.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace vela::kom;
using vela::sim::RequestKind;
using vela::sim::Simulator;
using Device = QRVDeviceBase;

namespace {

class ProtocolOverChannel : public ::testing::Test {
protected:
    ProtocolOverChannel()
        : m_simulator(Options()), m_device(ConnectedPrinter{0x0922, m_simulator.ProductId(),
                                                            m_simulator.PrinterPath(), L"Channel Test"}) {}

    static Simulator::Options Options() {
        Simulator::Options options;
        options.name = "Channel Test";
        options.model = "410";
        options.serial = "SIM0042";
        return options;
    }

    void TearDown() override {
        // The library's framing must be exact: the printer saw no malformed request.
        EXPECT_TRUE(m_simulator.Printer().Violations().empty());
    }

    vela::test::PauseRecorder m_pauses; // the fixed pauses are recorded, not slept
    Simulator m_simulator;
    Device m_device;
    vela::test::TempDir m_dir;
};

} // namespace

TEST_F(ProtocolOverChannel, FilesRoundTripByteForByte) {
    const std::wstring folder = m_device.GetImageLibraryPath();
    // Sizes around the 512-byte packet rule (737 bytes make a put of exactly 1024, which goes out
    // padded), the 8192-byte chunk and a multi-MiB file.
    const size_t sizes[] = {0, 511, 512, 737, 8192, 3 * 1024 * 1024 + 17};
    unsigned seed = 1;
    for (size_t size : sizes) {
        SCOPED_TRACE(size);
        const std::vector<uint8_t> content = vela::test::TestBytes(size, seed++);
        const std::string name = "file" + std::to_string(size) + ".bin";
        vela::test::WriteHostFile(m_dir.File(name), content);
        const std::wstring printerPath = folder + L"/" + vela::common::StringConverter::FromUtf8(name);

        ASSERT_EQ(m_device.PutFile(printerPath, m_dir.WFile(name)), 0);
        auto stored = m_simulator.Printer().ReadFile(vela::common::StringConverter::ToUtf8(printerPath));
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(*stored, content);

        ASSERT_EQ(m_device.GetFile(printerPath, m_dir.WFile("back.bin")), 0);
        EXPECT_EQ(vela::test::ReadHostFile(m_dir.File("back.bin")), content);
    }
    EXPECT_EQ(vela::test::ListDirectory(m_dir.Path()).size(), std::size(sizes) + 1); // no temporaries left
}

TEST_F(ProtocolOverChannel, FolderOperationsAndPrinterErrors) {
    const std::wstring folder = m_device.GetJobFileLibraryPath();
    vela::test::WriteHostFile(m_dir.File("job.txt"), {'j', 'o', 'b'});
    ASSERT_EQ(m_device.PutFile(folder + L"/job.txt", m_dir.WFile("job.txt")), 0);
    EXPECT_THROW(m_device.PutFile(folder + L"/job.txt", m_dir.WFile("job.txt")), FileAlreadyExistsException);

    uint64_t free = 0, used = 0;
    m_device.GetDiskSpace(free, used);
    EXPECT_EQ(used, m_simulator.Printer().DiskUsed());
    EXPECT_EQ(free + used, m_simulator.Printer().DiskCapacity());

    ASSERT_EQ(m_device.RenameFile(folder + L"/job.txt", folder + L"/renamed.txt"), 0);
    auto listing = m_device.GetFolderContent(folder);
    ASSERT_EQ(listing.size(), 1u);
    EXPECT_EQ(listing[0]->Name(), L"renamed.txt");
    EXPECT_TRUE(listing[0]->IsFile());
    EXPECT_EQ(listing[0]->Size(), 3);

    ASSERT_EQ(m_device.DeleteFile(folder + L"/renamed.txt"), 0);
    EXPECT_TRUE(m_device.GetFolderContent(folder).empty());

    // A missing printer file: the printer's code becomes the typed error, and an existing host
    // file of that name is left as it was.
    vela::test::WriteHostFile(m_dir.File("keep.bin"), {1, 2, 3});
    EXPECT_THROW(m_device.GetFile(folder + L"/missing.bin", m_dir.WFile("keep.bin")), FileNotFoundException);
    EXPECT_EQ(vela::test::ReadHostFile(m_dir.File("keep.bin")), (std::vector<uint8_t>{1, 2, 3}));

    auto logs = m_device.GetFolderContent(L"/mnt/data/settings");
    EXPECT_FALSE(logs.empty());
    EXPECT_EQ(m_pauses.Pauses().front(), 250u); // completion polls start with their short wait
}

TEST_F(ProtocolOverChannel, ABadReplyIsATypedErrorAndTheNextTransactionWorks) {
    // A query is repeated once after a corrupt header: corrupt twice, it fails.
    m_simulator.Printer().InjectFault(vela::sim::Fault::CorruptStartByte().For(RequestKind::statusQuery));
    m_simulator.Printer().InjectFault(vela::sim::Fault::CorruptStartByte().For(RequestKind::statusQuery));
    EXPECT_THROW(m_device.GetStatus(), ReplyException);
    m_simulator.Printer().InjectFault(vela::sim::Fault::WrongReplyLength(-1).For(RequestKind::statusQuery));
    EXPECT_THROW(m_device.GetStatus(), ReplyException);
    EXPECT_NO_THROW(m_device.GetStatus());
}
