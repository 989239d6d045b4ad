// The facade's retry routine, through the pause seam: counts of attempts and pauses, the
// fall-back on a cut-short pause, and which exceptions are retried.
#include "kom/connection/QueryRetry.h"
#include "kom/QRVException.h"
#include "support/PauseRecorder.h"

#include <gtest/gtest.h>

#include <string>

using vela::common::WaitResult;
using vela::kom::ReplyException;
using vela::kom::RunQueryWithRetry;
using vela::test::PauseRecorder;

namespace {

[[noreturn]] void Rethrow(const vela::common::Exception&) {
    throw;
}

// A query that fails `failures` times with `E`, then answers "ok".
template <class E> struct FlakyQuery {
    int failures;
    int calls = 0;
    std::wstring operator()() {
        ++calls;
        if (calls <= failures) {
            throw E(L"'Wrong reply'", L"PrinterDevice::GetStatusInternal()");
        }
        return L"ok";
    }
};

} // namespace

TEST(QueryRetry, TenAttemptsNinePausesThenTheQuerysOwnException) {
    PauseRecorder pauses;
    FlakyQuery<ReplyException> query{1000};
    try {
        RunQueryWithRetry<ReplyException>(
            10, std::ref(query), [] { return std::wstring(L"fallback"); }, Rethrow);
        FAIL() << "no exception";
    } catch (const ReplyException& e) {
        EXPECT_EQ(e.Message(), L"'Wrong reply'");
    }
    EXPECT_EQ(query.calls, 10);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(9, 500));
}

TEST(QueryRetry, RecoversOnALaterAttempt) {
    PauseRecorder pauses;
    FlakyQuery<ReplyException> query{2};
    EXPECT_EQ(RunQueryWithRetry<ReplyException>(
                  10, std::ref(query), [] { return std::wstring(); }, Rethrow),
              L"ok");
    EXPECT_EQ(query.calls, 3);
    EXPECT_EQ(pauses.Pauses().size(), 2u);
}

TEST(QueryRetry, APauseThatIsNotATimeOutAnswersTheFallback) {
    PauseRecorder pauses;
    pauses.SetResultAt(1, WaitResult::signalled);
    FlakyQuery<ReplyException> query{1000};
    EXPECT_EQ(RunQueryWithRetry<ReplyException>(
                  10, std::ref(query), [] { return std::wstring(L"fallback"); }, Rethrow),
              L"fallback");
    EXPECT_EQ(query.calls, 2);

    pauses.SetResultAt(0, WaitResult::failed);
    FlakyQuery<ReplyException> again{1000};
    EXPECT_EQ(RunQueryWithRetry<ReplyException>(
                  10, std::ref(again), [] { return std::wstring(L"fallback"); }, Rethrow),
              L"fallback");
    EXPECT_EQ(again.calls, 1);
}

TEST(QueryRetry, OtherKindsPassAtOnceAndTheLastAttemptMayChangeTheKind) {
    PauseRecorder pauses;
    FlakyQuery<vela::kom::PrinterBuzyException> busy{1000};
    EXPECT_THROW(RunQueryWithRetry<ReplyException>(
                     10, std::ref(busy), [] { return std::wstring(); }, Rethrow),
                 vela::kom::PrinterBuzyException);
    EXPECT_EQ(busy.calls, 1);
    EXPECT_TRUE(pauses.Pauses().empty());

    // The version query's way: everything retried, the last one leaves as the root kind.
    FlakyQuery<vela::common::UsbPrintDeviceReadException> silent{1000};
    try {
        RunQueryWithRetry<vela::common::Exception>(
            3, std::ref(silent), [] { return std::wstring(); },
            [](const vela::common::Exception& e) { throw vela::common::Exception(e.Message(), e.Source()); });
        FAIL() << "no exception";
    } catch (const vela::common::Exception& e) {
        EXPECT_EQ(e.ExceptionName(), L"Exception");
        EXPECT_EQ(e.Message(), L"'Wrong reply'");
        EXPECT_EQ(e.Source(), L"PrinterDevice::GetStatusInternal()");
    }
    EXPECT_EQ(silent.calls, 3);
}
