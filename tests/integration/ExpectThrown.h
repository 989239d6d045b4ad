#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace vela::test {

// `call` must throw E with `message` (and `source`, unless empty); returns what it threw.
template <class E, class F>
std::optional<E> ExpectThrown(F&& call, const std::wstring& message, const std::wstring& source = L"") {
    try {
        call();
    } catch (const E& e) {
        EXPECT_EQ(e.Message(), message);
        if (!source.empty()) {
            EXPECT_EQ(e.Source(), source);
        }
        return e;
    }
    ADD_FAILURE() << "no exception";
    return std::nullopt;
}

} // namespace vela::test
