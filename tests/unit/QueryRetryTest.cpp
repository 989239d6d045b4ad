// The facade's retry routine through the pause seam: attempts, pauses, fall-back, kinds.
#include "kom/connection/QueryRetry.h"
#include "kom/QRVException.h"
#include "support/PauseRecorder.h"

#include <gtest/gtest.h>

using vela::common::WaitResult;
using vela::kom::ReplyException;
using vela::kom::RunQueryWithRetry;
using vela::test::PauseRecorder;

namespace {

[[noreturn]] void Rethrow(const vela::common::Exception&) {
    throw;
}

// Fails `failures` times with `E`, then answers "ok".
template <class E> struct FlakyQuery {
    int failures;
    int calls = 0;
    std::wstring operator()() {
        if (++calls <= failures) {
            throw E(L"'Wrong reply'", L"PrinterDevice::GetStatusInternal()");
        }
        return L"ok";
    }
};

template <class Caught, class Query, class Last = decltype(&Rethrow)>
std::wstring Retried(Query& query, uint32_t attempts = 10, Last last = Rethrow) {
    return RunQueryWithRetry<Caught>(
        attempts, std::ref(query), [] { return std::wstring(L"fallback"); }, last);
}

} // namespace

TEST(QueryRetry, AttemptsPausesAndTheFallBack) {
    PauseRecorder pauses;
    FlakyQuery<ReplyException> broken{1000};
    EXPECT_THROW(Retried<ReplyException>(broken), ReplyException);
    EXPECT_EQ(broken.calls, 10);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(9, 500));

    pauses.Clear();
    FlakyQuery<ReplyException> recovering{2};
    EXPECT_EQ(Retried<ReplyException>(recovering), L"ok");
    EXPECT_EQ(pauses.Pauses().size(), 2u);

    // A pause that ends any other way than by time-out answers the fall-back at once.
    for (WaitResult cut : {WaitResult::signalled, WaitResult::failed}) {
        pauses.SetResultAt(1, cut);
        FlakyQuery<ReplyException> interrupted{1000};
        EXPECT_EQ(Retried<ReplyException>(interrupted), L"fallback");
        EXPECT_EQ(interrupted.calls, 2);
    }
}

TEST(QueryRetry, OtherKindsPassAtOnceAndTheLastAttemptMayChangeTheKind) {
    PauseRecorder pauses;
    FlakyQuery<vela::kom::PrinterBuzyException> busy{1000};
    EXPECT_THROW(Retried<ReplyException>(busy), vela::kom::PrinterBuzyException);
    EXPECT_EQ(busy.calls, 1);
    EXPECT_TRUE(pauses.Pauses().empty());

    // The version query's way: every kind retried, the last one leaves as the root kind.
    FlakyQuery<vela::common::UsbPrintDeviceReadException> silent{1000};
    try {
        Retried<vela::common::Exception>(silent, 3, [](const vela::common::Exception& e) {
            throw vela::common::Exception(e.Message(), e.Source());
        });
        FAIL() << "no exception";
    } catch (const vela::common::Exception& e) {
        EXPECT_EQ(e.ExceptionName(), L"Exception");
        EXPECT_EQ(e.Message() + e.Source(), L"'Wrong reply'PrinterDevice::GetStatusInternal()");
    }
    EXPECT_EQ(silent.calls, 3);
}
