#include "SimFixture.h"

using namespace simtest;
using std::chrono::milliseconds;
using vela::sim::ByteDirection;
using vela::sim::Fault;
using vela::sim::RequestKind;

TEST_F(SimTest, ReplyFaultsBendOneReplyAndThenAreGone) {
    printer.InjectFault(Fault::CorruptStartByte());
    Bytes out = Send(StatusQuery());
    ASSERT_EQ(out.size(), 17u);
    EXPECT_EQ(out[0], 0x3C);
    EXPECT_EQ(Ask(StatusQuery()).start, 0xC3) << "one-shot";

    printer.InjectFault(Fault::WrongCommandByte());
    EXPECT_EQ(Ask(StatusQuery()).payload[1], 0x81);
    printer.InjectFault(Fault::WrongCommandByte(0x29).For(RequestKind::getFileFetch));
    EXPECT_EQ(Ask(StatusQuery()).payload[1], 0x80) << "narrowed to another kind";
    EXPECT_EQ(Ask(GetFetch("/mnt/data/settings/syslog")).payload[1], 0x29);

    printer.InjectFault(Fault::WrongReplyLength(-1));
    EXPECT_EQ(Ask(StatusQuery()).payload.size(), 9u) << "header and payload agree on the shorter length";
    printer.InjectFault(Fault::WrongReplyLength(+2));
    Reply longer = Ask(StatusQuery());
    EXPECT_EQ(longer.payload.size(), 12u);
    EXPECT_EQ(longer.payload[10], 0x00);

    printer.InjectFault(Fault::Silence().For(RequestKind::completionPoll));
    EXPECT_EQ(Ask(StatusQuery()).payload.size(), 10u);
    EXPECT_TRUE(Send(Poll()).empty());
    EXPECT_EQ(Finish(), 0);
    EXPECT_TRUE(printer.ArmedFaults().empty());
}

TEST_F(SimTest, PersistentFaultsStayUntilCleared) {
    printer.InjectFault(Fault::Silence().Persistent());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(Send(StatusQuery()).empty());
    }
    printer.ClearFaults();
    EXPECT_EQ(Ask(StatusQuery()).payload.size(), 10u);
}

TEST_F(SimTest, ReplyFaultsWaitForARequestThatHasAReply) {
    printer.InjectFault(Fault::CorruptStartByte());
    EXPECT_TRUE(Send(DeviceControl(0x09)).empty());
    EXPECT_TRUE(Send(Delete("/mnt/data/jobs/none")).empty());
    EXPECT_EQ(Send(Poll())[0], 0x3C);
}

TEST_F(SimTest, StaleBytesPrecedeTheReply) {
    printer.InjectFault(Fault::StaleBytes());
    auto replies = Replies(Send(StatusQuery()));
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].payload, (Bytes{0x00, 0x80, 0x02, 0x00, 0x00})) << "an old completion answer";
    EXPECT_EQ(replies[1].payload.size(), 10u);

    printer.InjectFault(Fault::StaleBytes({0xAA, 0xBB}));
    Bytes out = Send(StatusQuery());
    ASSERT_EQ(out.size(), 19u);
    EXPECT_EQ(out[0], 0xAA);
    EXPECT_EQ(out[2], 0xC3);
}

TEST_F(SimTest, CompletionFaultsDecideTheOutcomeOfTheNextOperation) {
    printer.InjectFault(Fault::CompletionResult(3));
    EXPECT_EQ(Run(Put("/mnt/data/images/x", Text("x"))), 3);
    EXPECT_FALSE(printer.ReadFile("/mnt/data/images/x")) << "a failed operation changes nothing";
    EXPECT_EQ(Run(Put("/mnt/data/images/x", Text("x"))), 0);

    printer.InjectFault(Fault::CompletionResult(200).For(RequestKind::deleteFile));
    EXPECT_EQ(Run(GetPrepare("/mnt/data/images/x")), 0);
    EXPECT_EQ(Run(Delete("/mnt/data/images/x")), 200);
    EXPECT_TRUE(printer.ReadFile("/mnt/data/images/x"));

    printer.InjectFault(Fault::BusyForever());
    Send(Delete("/mnt/data/images/x"));
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(Ask(Poll()).payload[2], 1);
    }
    // The next operation is a new start.
    EXPECT_EQ(Run(GetPrepare("/mnt/data/images/none")), 2);
}

TEST_F(SimTest, BusyForNPollsThenFinished) {
    printer.SetCompletionBusyPolls(3);
    Send(Put("/mnt/data/jobs/j", Text("j")));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Ask(Poll()).payload, (Bytes{0x00, 0x80, 0x01, 0x00, 0x00}));
    }
    EXPECT_EQ(Finish(), 0);
    EXPECT_EQ(Finish(), 0) << "an idle printer answers finished";
}

TEST_F(SimTest, DisconnectCountsBothDirectionsAndCutsTheReply) {
    printer.InjectFault(Fault::DisconnectAfter(9 + 5, ByteDirection::both, milliseconds(40)));
    vela::sim::FeedResult cut = printer.Feed(StatusQuery());
    EXPECT_TRUE(cut.disconnect);
    EXPECT_EQ(cut.reconnectAfter, milliseconds(40));
    EXPECT_EQ(cut.output, (Bytes{0xC3, 0x00, 0x00, 0x00, 0x11}));
    EXPECT_EQ(Ask(StatusQuery()).payload.size(), 10u) << "one-shot";
}

TEST_F(SimTest, DisconnectCountingRequestsDropsTheRestOfTheMessage) {
    printer.InjectFault(Fault::DisconnectAfter(100, ByteDirection::toPrinter, milliseconds(0)));
    Bytes put = Put("/mnt/data/images/cut", Bytes(200, 9));
    vela::sim::FeedResult cut = printer.Feed(put);
    EXPECT_TRUE(cut.disconnect);
    EXPECT_TRUE(cut.output.empty());
    // After the reconnection the host starts afresh; the cut message left no trace.
    EXPECT_EQ(Ask(StatusQuery()).payload.size(), 10u);
    EXPECT_FALSE(printer.ReadFile("/mnt/data/images/cut"));
    EXPECT_TRUE(printer.Violations().empty());
}

TEST_F(SimTest, DisconnectCountingRepliesLetsRequestsPass) {
    printer.InjectFault(Fault::DisconnectAfter(20, ByteDirection::fromPrinter).Persistent());
    EXPECT_EQ(Send(StatusQuery()).size(), 17u);
    vela::sim::FeedResult cut = printer.Feed(StatusQuery());
    EXPECT_TRUE(cut.disconnect);
    EXPECT_EQ(cut.output.size(), 3u);
    // Persistent: the count starts again.
    EXPECT_EQ(Send(StatusQuery()).size(), 17u);
    EXPECT_TRUE(printer.Feed(StatusQuery()).disconnect);
}
