#pragma once

#include "SimRequests.h"
#include "sim/SimPrinter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace simtest {

// A printer engine on a hand-driven clock, with helpers for one exchange at a time.
class SimTest : public ::testing::Test {
protected:
    using Clock = std::chrono::steady_clock;

    SimTest() : printer(Options()) {}

    vela::sim::SimPrinter::Options Options() {
        vela::sim::SimPrinter::Options options;
        options.serial = "QRV410-T0001";
        options.diskCapacity = 1 << 20;
        options.clock = [this] { return now; };
        return options;
    }

    // Sends one request as the host would (pad byte included) and returns all the printer wrote.
    Bytes Send(const Bytes& request) {
        vela::sim::FeedResult result = printer.Feed(Padded(request));
        EXPECT_FALSE(result.disconnect);
        return result.output;
    }
    Reply Ask(const Bytes& request) { return OnlyReply(Send(request)); }

    // One completion poll that must say "finished"; returns its result code.
    int Finish() {
        Reply r = Ask(Poll());
        EXPECT_EQ(r.payload.size(), 5u);
        if (r.payload.size() != 5) {
            return -1;
        }
        EXPECT_EQ(r.payload[1], 0x80);
        EXPECT_EQ(r.payload[2], 2) << "still busy";
        return r.payload[4];
    }
    // A file-system command (no direct answer) followed by its completion poll.
    int Run(const Bytes& request) {
        EXPECT_TRUE(Send(request).empty()) << "a file-system command has no direct answer";
        return Finish();
    }

    Clock::time_point now = Clock::time_point{} + std::chrono::hours(1);
    vela::sim::SimPrinter printer;
};

} // namespace simtest
