// The retry routine's cases the simulator cannot stage: a query that recovers, and kinds that are
// not retried at all (the ten attempts and the fall-back run against the simulator).
#include "kom/connection/QueryRetry.h"
#include "kom/QRVException.h"
#include "support/PauseRecorder.h"

#include <gtest/gtest.h>

using vela::kom::ReplyException;

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

template <class Query> std::wstring Retried(Query& query) {
    return vela::kom::RunQueryWithRetry<ReplyException>(
        10, std::ref(query), [] { return std::wstring(L"fallback"); }, Rethrow);
}

} // namespace

TEST(QueryRetry, ARecoveringQueryAnswersAndOtherKindsPassAtOnce) {
    vela::test::PauseRecorder pauses;
    FlakyQuery<ReplyException> recovering{2};
    EXPECT_EQ(Retried(recovering), L"ok");
    EXPECT_EQ(recovering.calls, 3);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(2, 500));

    pauses.Clear();
    FlakyQuery<vela::kom::PrinterBuzyException> busy{1000};
    EXPECT_THROW(Retried(busy), vela::kom::PrinterBuzyException);
    EXPECT_EQ(busy.calls, 1);
    EXPECT_TRUE(pauses.Pauses().empty());
}
