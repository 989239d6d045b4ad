#pragma once

#include "common/StringConverter.h"
#include "kom/device/PrinterDeviceFileSystem.ipp"
#include "kom/device/PrinterDeviceProtocol.ipp"
#include "support/FakePrinter.h"
#include "support/PauseRecorder.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace vela::test {

using TestDevice =
    vela::kom::PrinterDeviceBase<FakeTransport, NoOpSynchronizer, vela::common::StringConverter>;

// A protocol object over the scripted printer, pauses recorded, log captured.
class ProtocolFixture : public ::testing::Test {
protected:
    ProtocolFixture() { NoOpSynchronizer::Reset(); }

    // After every transaction, failed or not, the lock is free and each channel opened was closed.
    void ExpectReleased() const {
        EXPECT_EQ(NoOpSynchronizer::Held(), 0);
        EXPECT_EQ(printer.Opens(), printer.Closes());
    }

    template <class E, class F>
    void ExpectThrow(F&& call, const std::wstring& message, const std::wstring& source) {
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const E& e) {
            EXPECT_EQ(e.Message(), message);
            EXPECT_EQ(e.Source(), source);
            EXPECT_TRUE(log.Contains(source + L": " + e.ExceptionName() + L": " + message));
        }
    }

    LogCapture log;
    FakePrinter printer;
    PauseRecorder pauses;
    TestDevice device{vela::kom::ConnectedPrinter{0x0922, 0x0025, L"fake-path", L"Queue"}};
};

} // namespace vela::test
