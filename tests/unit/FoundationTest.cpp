#include "common/Event.h"
#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "kom/QRVException.h"
#include "qrv/LogSink.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace vela::common;
using namespace vela::kom;
using vela::test::LogCapture;

TEST(SystemErrors, MessagesCarryCodeAndTrimmedSystemText) {
    for (uint32_t code : {2u, 3u, 5u}) {
        Win32Error e(code, L"here");
        std::wstring text = SystemErrorText(code);
        EXPECT_FALSE(text.empty()) << code;
        EXPECT_NE(text.back(), L'\n');
        EXPECT_NE(text.back(), L' ');
        EXPECT_EQ(e.Message(), L"Win32 error 0x" + std::to_wstring(code) + L" (" + text + L")");
    }
    EXPECT_EQ(Win32Error(0x7ffffff0u, L"s").Message(), L"Win32 error 0x7ffffff0 ()");
    EXPECT_EQ(ConfigurationManagerError(-4, L"s").Message(), L"Configuration Manager Error -4");
}

// A per-cent sign reaches the sink as it stands, from LogAndThrow and from text without arguments.
// The line's form is checked wherever a failure's log line is (PathRules, Gateway).
TEST(LogSink, APerCentSignReachesTheSinkAsItStandsAndLevelsFilter) {
    LogCapture log;
    EXPECT_THROW(LogAndThrow(PathException(L"100%s %d done", L"src")), PathException);
    Log::LogWarning(L"rate 100%s %d");
    Log::SetLevel(static_cast<int>(LogLevel::warning));
    Log::LogInfo(L"hidden");
    ASSERT_EQ(log.Lines().size(), 2u);
    EXPECT_EQ(log.Lines()[0].level, LogLevel::error);
    EXPECT_EQ(log.Lines()[0].text, L"src: PathException: 100%s %d done");
    EXPECT_EQ(log.Lines()[1].text, L"rate 100%s %d");
    EXPECT_EQ(log.Lines()[1].level, LogLevel::warning);
}

// A host that sets its own sink gets the lines, and the sink it replaced back to restore later.
TEST(LogSink, TheHostsSinkTakesTheLinesAndIsHandedBackWhenReplaced) {
    namespace hc = vela::printer::communication;
    std::vector<std::wstring> lines;
    const hc::LogSink before =
        hc::SetLogSink([&](hc::LogLevel, const std::wstring& line) { lines.push_back(line); });
    Log::LogWarning(L"to the host");
    const hc::LogSink mine = hc::SetLogSink(before);
    ASSERT_TRUE(mine);
    mine(hc::LogLevel::warning, L"handed back");
    EXPECT_EQ(lines, (std::vector<std::wstring>{L"to the host", L"handed back"}));
}

TEST(LogFormat, ConversionsAreTypeSafe) {
    EXPECT_EQ(Format(L"%s|%s|%s|%s", std::wstring(L"wide"), std::string("n\xC3\xA4rrow"), L"lit", "c"),
              L"wide|n\u00e4rrow|lit|c");
    EXPECT_EQ(Format(L"%d %i %u %x %X %%", -7, 42, 7u, 255, 255u), L"-7 42 7 ff FF %");
    EXPECT_EQ(Format(L"0x%x", static_cast<uint32_t>(0x80070057u)), L"0x80070057");
    EXPECT_EQ(Format(L"%x", -1), L"ffffffff");
    EXPECT_EQ(Format(L"[%5d][%-4s][%04x]", 42, L"ab", 0xa), L"[   42][ab  ][000a]");
    // Wrong or missing arguments never read memory they were not given.
    EXPECT_EQ(Format(L"%d and %s", std::wstring(L"text")), L"text and ");
    EXPECT_EQ(Format(L"%s", 12), L"12");
    EXPECT_EQ(Format(L"100%", 1), L"100%");
    EXPECT_EQ(Format(L"%q %s", L"x"), L"%q x");
}

TEST(StringConverter, RoundTripsAndReplacesInvalidInput) {
    std::wstring text = L"a\u00e4\u20ac";
    // A code point of the last plane reaches the top bits of a four-byte sequence.
    text += static_cast<wchar_t>(sizeof(wchar_t) == 2 ? 0xDBFF : 0x10FFFD);
    if (sizeof(wchar_t) == 2) {
        text += static_cast<wchar_t>(0xDFFD);
    }
    std::string utf8 = StringConverter::ToUtf8(text);
    EXPECT_EQ(utf8, "a\xC3\xA4\xE2\x82\xAC\xF4\x8F\xBF\xBD");
    EXPECT_EQ(StringConverter::FromUtf8(utf8), text);
    EXPECT_EQ(StringConverter::FromUtf8(std::string("a\xFF"
                                                    "b")),
              L"a\uFFFDb");
    EXPECT_EQ(StringConverter::FromUtf8(std::string("\xE2\x82")), L"\uFFFD");       // cut sequence
    EXPECT_EQ(StringConverter::FromUtf8(std::string("\xC0\xAF")), L"\uFFFD\uFFFD"); // overlong
    EXPECT_EQ(StringConverter::FromUtf8(std::string("\xED\xA0\x80")), L"\uFFFD");   // encoded surrogate
    EXPECT_EQ(StringConverter::ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

// One Set of an auto-reset event wakes one of two waiters; the other waits out its time.
TEST(Event, AnAutoResetSignalGoesToOneWaiterAndATimeOutLastsItsWholeTime) {
    Event event;
    std::atomic<int> counts[3] = {}; // by WaitResult
    auto waiter = [&] { counts[static_cast<int>(event.Wait(400))]++; };
    std::thread first(waiter), second(waiter);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(event.Set());
    first.join();
    second.join();
    EXPECT_EQ(counts[static_cast<int>(WaitResult::signalled)], 1);
    EXPECT_EQ(counts[static_cast<int>(WaitResult::timeout)], 1);
#ifndef _WIN32 // WaitForSingleObject may end a little early by design
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.Wait(30), WaitResult::timeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
#endif
}
