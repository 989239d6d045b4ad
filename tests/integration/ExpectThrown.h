#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vela::test {

// `call` must throw E with `message` (and `source`, unless empty).
template <class E, class F>
void ExpectThrown(F&& call, const std::wstring& message, const std::wstring& source = L"") {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const E& e) {
        EXPECT_EQ(e.Message(), message);
        if (!source.empty()) {
            EXPECT_EQ(e.Source(), source);
        }
    }
}

} // namespace vela::test
