#include "SimFixture.h"

using namespace simtest;
using vela::sim::StatusFields;

namespace {

std::vector<std::string> ZeroEndedTexts(const Bytes& data, size_t from) {
    std::vector<std::string> texts;
    std::string current;
    for (size_t i = from; i < data.size(); ++i) {
        if (data[i] == 0) {
            texts.push_back(current);
            current.clear();
        } else {
            current += static_cast<char>(data[i]);
        }
    }
    return texts;
}

} // namespace

TEST_F(SimTest, VersionReplyCarriesSevenZeroEndedTextsWithTheSerialSixth) {
    Reply r = Ask(VersionQuery());
    EXPECT_EQ(r.unit, 0x07);
    ASSERT_GE(r.payload.size(), 14u);
    EXPECT_EQ(r.payload[1], 0x39);
    auto texts = ZeroEndedTexts(r.payload, 2);
    ASSERT_EQ(texts.size(), 7u);
    EXPECT_EQ(texts[5], "QRV410-T0001");
    EXPECT_EQ(texts[4], "QRV410-B2");
    EXPECT_FALSE(texts[1].empty());

    // Empty texts still make a reply the host accepts (at least 14 payload bytes).
    printer.SetVersions({});
    r = Ask(VersionQuery());
    EXPECT_EQ(r.payload.size(), 14u);
    EXPECT_EQ(ZeroEndedTexts(r.payload, 2).size(), 12u);
}

TEST_F(SimTest, CassetteMemoryDependsOnTheCassette) {
    Reply r = Ask(CassetteMemoryQuery());
    ASSERT_EQ(r.payload.size(), 130u);
    EXPECT_EQ(r.payload[1], 0x47);
    EXPECT_EQ(std::string(r.payload.begin() + 3, r.payload.begin() + 10), "C62X30W"); // memory bytes 1..7

    printer.SetSku("AB12");
    r = Ask(CassetteMemoryQuery());
    EXPECT_EQ(std::string(r.payload.begin() + 3, r.payload.begin() + 10), "AB12   ");

    printer.SetCassetteMemoryReadable(false); // inserted, memory unreadable
    EXPECT_EQ(Ask(CassetteMemoryQuery()).payload.size(), 3u);

    printer.SetCassettePresent(true);
    EXPECT_EQ(Ask(CassetteMemoryQuery()).payload.size(), 130u);
    printer.SetCassettePresent(false);
    r = Ask(CassetteMemoryQuery());
    EXPECT_EQ(r.payload, (Bytes{0x00, 0x47, 0x01}));
    EXPECT_EQ(printer.GetStatus().cassette, 1);
}

TEST_F(SimTest, PrintControlIsAcknowledgedAndActsOnTheStatus) {
    Reply r = Ask(PrintControl(0x0A));
    EXPECT_EQ(r.unit, 0x10);
    EXPECT_EQ(r.payload, (Bytes{0x00, 0x50, 0x0A, 0x00}));

    printer.SetCutterJammed(true);
    EXPECT_EQ(Ask(PrintControl(0x04)).payload[3], 0x01) << "no cut with a jammed cutter";
    EXPECT_EQ(Ask(PrintControl(0x0F)).payload[3], 0x00);
    EXPECT_EQ(printer.GetStatus().cutter, 0);
    EXPECT_EQ(Ask(PrintControl(0x04)).payload[3], 0x00);

    printer.ModifyStatus([](StatusFields& f) {
        f.print = 7;
        f.label = 2;
    });
    Ask(PrintControl(0x03));
    EXPECT_EQ(printer.GetStatus().print, 0);
    EXPECT_EQ(printer.GetStatus().label, 0);

    printer.ModifyStatus([](StatusFields& f) { f.print = 2; });
    Ask(PrintControl(0x01));
    EXPECT_EQ(printer.GetStatus().print, 0);

    EXPECT_EQ(Ask(PrintControl(0x77)).payload[3], 0x01) << "unknown order";
}

TEST_F(SimTest, DeviceControlOrdersGetNoReply) {
    EXPECT_TRUE(Send(DeviceControl(0x01)).empty());
    EXPECT_TRUE(Send(DeviceControl(0x09)).empty());
    vela::sim::FeedResult reboot = printer.Feed(DeviceControl(0x02));
    EXPECT_TRUE(reboot.output.empty());
    EXPECT_TRUE(reboot.disconnect);
    EXPECT_EQ(reboot.reconnectAfter, std::chrono::milliseconds(2000));
    EXPECT_EQ(reboot.disconnectAfter, std::chrono::milliseconds(100)) << "the host's write completes first";
    printer.SetRebootDelay(std::chrono::milliseconds(10));
    EXPECT_EQ(printer.Feed(DeviceControl(0x02)).reconnectAfter, std::chrono::milliseconds(10));
    EXPECT_TRUE(printer.Violations().empty());
}

TEST_F(SimTest, FolderDetailNamesTheLibraryFolders) {
    const std::pair<uint8_t, std::string> folders[] = {{1, "/mnt/data/jobs"},
                                                       {2, "/mnt/data/templates"},
                                                       {3, "/mnt/data/images"},
                                                       {4, "/mnt/data/update"},
                                                       {9, ""}};
    for (const auto& [selector, path] : folders) {
        Reply r = Ask(FolderDetail(selector));
        ASSERT_GE(r.payload.size(), 8u);
        EXPECT_EQ(r.payload[1], 0x23);
        auto end = std::find(r.payload.begin() + 7, r.payload.end(), 0);
        ASSERT_NE(end, r.payload.end()) << "the path needs its zero byte";
        EXPECT_EQ(std::string(r.payload.begin() + 7, end), path);
        // The folder listing of each library folder succeeds.
        if (!path.empty()) {
            EXPECT_EQ(Run(ListPrepare(path)), 0);
        }
    }
}

TEST_F(SimTest, DiskSpaceFollowsWhatIsStored) {
    auto ask = [&] {
        Reply r = Ask(DiskSpace());
        EXPECT_EQ(r.payload.size(), 18u);
        EXPECT_EQ(r.payload[1], 0x28);
        return std::make_pair(Le64(r.payload, 2), Le64(r.payload, 10));
    };
    auto [free0, used0] = ask();
    EXPECT_EQ(free0 + used0, uint64_t{1} << 20);
    EXPECT_GT(used0, 0u) << "the log files take room";

    ASSERT_EQ(Run(Put("/mnt/data/images/a.bin", Bytes(1000, 1))), 0);
    auto [free1, used1] = ask();
    EXPECT_EQ(used1, used0 + 1000);
    EXPECT_EQ(free1, free0 - 1000);

    ASSERT_EQ(Run(Delete("/mnt/data/images/a.bin")), 0);
    EXPECT_EQ(ask(), std::make_pair(free0, used0));
}
