#include "SimFixture.h"
#include "sim/Md5.h"

using namespace simtest;
using vela::sim::Md5;
using vela::sim::RequestKind;
using vela::sim::ViolationKind;

namespace {

std::string HexOf(const Md5::Digest& d) {
    std::string s;
    char cell[3];
    for (uint8_t b : d) {
        std::snprintf(cell, sizeof cell, "%02x", b);
        s += cell;
    }
    return s;
}

std::vector<ViolationKind> Kinds(const vela::sim::SimPrinter& printer) {
    std::vector<ViolationKind> kinds;
    for (const auto& v : printer.Violations()) {
        kinds.push_back(v.kind);
    }
    return kinds;
}

} // namespace

TEST(SimMd5, MatchesTheReferenceVectorsWhateverTheSplit) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [text, hex] : vectors) {
        const uint8_t* data = reinterpret_cast<const uint8_t*>(text.data());
        EXPECT_EQ(HexOf(Md5::Of(data, text.size())), hex) << text;
        Md5 split; // the same bytes in uneven pieces cross the 64-byte blocks differently
        for (size_t at = 0; at < text.size(); at += 7) {
            split.Update(data + at, std::min<size_t>(7, text.size() - at));
        }
        EXPECT_EQ(HexOf(split.Finish()), hex) << text;
    }
}

TEST_F(SimTest, StatusQueryIsAnsweredWithTheEightStatusBytes) {
    printer.SetStatusBlock({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x34, 0x12});
    Reply r = Ask(StatusQuery());
    EXPECT_EQ(r.start, 0xC3);
    EXPECT_EQ(r.unit, 0x10);
    EXPECT_EQ(r.payload, (Bytes{0x00, 0x80, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x34, 0x12}));
    EXPECT_TRUE(printer.Violations().empty());
    ASSERT_EQ(printer.Requests().size(), 1u);
    EXPECT_EQ(printer.Requests()[0].kind, RequestKind::statusQuery);
    EXPECT_EQ(printer.Requests()[0].raw, StatusQuery());
}

TEST_F(SimTest, RequestsSplitAnywhereOrBackToBackAreAllAnswered) {
    Bytes two = StatusQuery();
    Bytes poll = Poll();
    two.insert(two.end(), poll.begin(), poll.end());
    Bytes out;
    for (uint8_t byte : two) { // one byte at a time
        Bytes piece = printer.Feed(&byte, 1).output;
        out.insert(out.end(), piece.begin(), piece.end());
    }
    auto replies = Replies(out);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].payload.size(), 10u);
    EXPECT_EQ(replies[1].payload, (Bytes{0x00, 0x80, 0x02, 0x00, 0x00}));

    auto both = Replies(printer.Feed(two).output); // both in one read
    EXPECT_EQ(both.size(), 2u);
    EXPECT_TRUE(printer.Violations().empty());
}

TEST_F(SimTest, PadByteAfterAMultipleOf512IsDroppedAndItsAbsenceReported) {
    // A put whose message is exactly 1024 bytes: 287 + 737 data bytes.
    Bytes put = Put("/mnt/data/images/pad.bin", Bytes(737, 0x5A));
    ASSERT_EQ(put.size(), 1024u);
    EXPECT_EQ(Run(put), 0); // Send() adds the pad byte, as the host does
    EXPECT_TRUE(printer.Violations().empty());
    EXPECT_EQ(printer.ReadFile("/mnt/data/images/pad.bin"), Bytes(737, 0x5A));

    // Without the pad byte the next message is still understood, but the lapse is recorded.
    EXPECT_TRUE(printer.Feed(Put("/mnt/data/images/nopad.bin", Bytes(737, 1))).output.empty());
    EXPECT_EQ(Finish(), 0);
    EXPECT_EQ(Kinds(printer), std::vector<ViolationKind>{ViolationKind::missingPad});

    // A zero byte after a message of any other length is garbage.
    printer.ClearViolations();
    Bytes status = StatusQuery();
    status.push_back(0x00);
    EXPECT_EQ(Replies(printer.Feed(status).output).size(), 1u);
    EXPECT_EQ(Replies(printer.Feed(StatusQuery()).output).size(), 1u);
    EXPECT_EQ(Kinds(printer), std::vector<ViolationKind>{ViolationKind::badStartByte});
}

TEST_F(SimTest, BrokenFramingIsRecordedAndNotAnswered) {
    struct Case {
        const char* what;
        Bytes bytes;
        ViolationKind kind;
    } cases[] = {
        {"bad start byte",
         {0xC2, 0x00, 0x00, 0x00, 0x09, 0x60, 0x10, 0x01, 0x80},
         ViolationKind::badStartByte},
        {"length below the header",
         {0xC3, 0x00, 0x00, 0x00, 0x05, 0x60, 0x10},
         ViolationKind::lengthTooSmall},
        {"length far too large", {0xC3, 0x7F, 0xFF, 0xFF, 0xFF, 0x60, 0x10}, ViolationKind::lengthTooLarge},
        {"unknown group", Message(0x10, {0x01, 0x80}, 0x61), ViolationKind::unknownRequest},
        {"unknown command", Message(0x10, {0x01, 0x99}), ViolationKind::unknownRequest},
        {"unknown unit", Message(0x05, {0x01, 0x80}), ViolationKind::unknownRequest},
        {"status query with a spare byte", Message(0x10, {0x01, 0x80, 0x00}), ViolationKind::lengthMismatch},
        {"put whose data length disagrees",
         [] {
             Bytes put = Put("/mnt/data/jobs/a", Text("abc"));
             put[267] = 4; // claims 4 data bytes, the header 3
             return put;
         }(),
         ViolationKind::lengthMismatch},
        {"lead byte not 0x01", Message(0x10, {0x02, 0x80}), ViolationKind::malformedPayload},
        {"header only", Message(0x10, {}), ViolationKind::malformedPayload},
    };
    for (const Case& c : cases) {
        printer.ClearViolations();
        EXPECT_TRUE(printer.Feed(c.bytes).output.empty()) << c.what;
        // The printer is back in step for the next request.
        EXPECT_EQ(Replies(printer.Feed(StatusQuery()).output).size(), 1u) << c.what;
        EXPECT_EQ(Kinds(printer), std::vector<ViolationKind>{c.kind}) << c.what;
    }
    // A malformed file-system command must not let the host's poll see a stale success.
    EXPECT_EQ(Finish(), 7);
}

TEST_F(SimTest, MessageLeftHalfwayIsReportedOnlyAfterTheHostFellSilent) {
    Bytes status = StatusQuery();
    printer.Feed(status.data(), 5);
    now += std::chrono::milliseconds(1999);
    printer.Tick();
    EXPECT_TRUE(printer.Violations().empty());
    now += std::chrono::milliseconds(1);
    printer.Tick();
    ASSERT_EQ(Kinds(printer), std::vector<ViolationKind>{ViolationKind::truncatedMessage});
    EXPECT_EQ(printer.Violations()[0].bytes, Bytes(status.begin(), status.begin() + 5));
    EXPECT_EQ(Replies(printer.Feed(status).output).size(), 1u);
}

TEST_F(SimTest, InterleavedRequestsOfTwoHostsShowUpAsViolations) {
    Bytes a = GetPrepare("/mnt/data/settings/syslog");
    Bytes b = StatusQuery();
    Bytes mixed(a.begin(), a.begin() + 100);
    mixed.insert(mixed.end(), b.begin(), b.end());
    mixed.insert(mixed.end(), a.begin() + 100, a.end());
    printer.Feed(mixed);
    now += std::chrono::seconds(3);
    printer.Tick();
    EXPECT_FALSE(printer.Violations().empty());
}

TEST_F(SimTest, RequestLogKeepsKindsSummariesAndBoundedRawBytes) {
    vela::sim::SimPrinter::Options options = Options();
    options.requestLogEntries = 2;
    options.requestLogRawBytes = 16;
    vela::sim::SimPrinter small(options);
    small.Feed(StatusQuery());
    small.Feed(Put("/mnt/data/jobs/j1", Bytes(100, 7)));
    small.Feed(Delete("/mnt/data/jobs/j1"));
    auto log = small.Requests();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].kind, RequestKind::putFile);
    EXPECT_EQ(log[0].size, 387u);
    EXPECT_EQ(log[0].raw.size(), 16u);
    EXPECT_EQ(log[0].summary, "put file /mnt/data/jobs/j1 (100 bytes): result 0");
    EXPECT_EQ(log[1].summary, "delete file /mnt/data/jobs/j1: result 0");
    EXPECT_EQ(small.CountRequests(RequestKind::deleteFile), 1u);
}

TEST_F(SimTest, TraceSeesEveryFrameAndViolation) {
    std::vector<std::string> lines;
    printer.SetTrace([&](const std::string& line) { lines.push_back(line); });
    printer.Feed(StatusQuery());
    printer.Feed(Bytes{0x01, 0x02});
    printer.Feed(StatusQuery());
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], "sim <- status query (9 bytes): C3 00 00 00 09 60 10 01 80");
    EXPECT_EQ(lines[1].rfind("sim -> 17 bytes: C3 00 00 00 11 60 10 00 80", 0), 0u);
    EXPECT_NE(lines[2].find("bad start byte"), std::string::npos);
}
