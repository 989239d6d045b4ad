#include "qrv/HostEvent.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using vela::printer::communication::HostEvent;

TEST(HostEvent, RaisesSubscribersInOrderUntilRemoved) {
    HostEvent<const std::wstring&> event;
    std::vector<std::wstring> calls;
    auto first = event.Add([&](const std::wstring& s) { calls.push_back(L"1:" + s); });
    auto second = event.Add([&](const std::wstring& s) { calls.push_back(L"2:" + s); });
    EXPECT_NE(first, second);
    EXPECT_EQ(event.Add(nullptr), 0u);

    event.Raise(L"a");
    EXPECT_TRUE(event.Remove(first));
    EXPECT_FALSE(event.Remove(first));
    EXPECT_FALSE(event.Remove(0));
    event.Raise(L"b");
    EXPECT_EQ(calls, (std::vector<std::wstring>{L"1:a", L"2:a", L"2:b"}));
    EXPECT_EQ(event.Count(), 1u);
}

TEST(HostEvent, SubscribersMayChangeTheListWhileBeingCalled) {
    HostEvent<uint32_t> event;
    std::vector<int> calls;
    HostEvent<uint32_t>::Token self = 0, victim = 0;
    self = event.Add([&](uint32_t) {
        calls.push_back(1);
        event.Remove(self);   // itself
        event.Remove(victim); // one whose turn has not come yet: skipped in this raise
        event.Add([&](uint32_t) { calls.push_back(4); }); // joins from the next raise on
    });
    victim = event.Add([&](uint32_t) { calls.push_back(2); });
    event.Add([&](uint32_t) { calls.push_back(3); });

    event.Raise(0);
    EXPECT_EQ(calls, (std::vector<int>{1, 3}));
    event.Raise(0);
    EXPECT_EQ(calls, (std::vector<int>{1, 3, 3, 4}));
}

TEST(HostEvent, AFailingSubscriberDoesNotSilenceTheOthers) {
    HostEvent<uint32_t> event;
    int after = 0;
    event.Add([](uint32_t) { throw std::runtime_error("first"); });
    event.Add([](uint32_t) { throw std::logic_error("second"); });
    event.Add([&](uint32_t) { ++after; });
    try {
        event.Raise(1);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "first");
    }
    EXPECT_EQ(after, 1);
}
