// The simulator's QRV_VIRTUAL_PRINTERS entries and its text conversion. Serving on a channel is
// checked over the real ones (tests/integration/SimulatorChannelTest.cpp).
#include "sim/TextEncoding.h"
#include "sim/VirtualPrinterEntry.h"

#include <gtest/gtest.h>

using vela::sim::VirtualPrinterEntry;

TEST(VirtualPrinterEntries, FormatAndParseAgree) {
    VirtualPrinterEntry a{"Label Printer", "/dev/pts/7", "/dev/pts/8", "410", "SIM1"};
    VirtualPrinterEntry b{"Other", "\\\\.\\pipe\\qrv-1", "", "210", ""};
    std::string value = VirtualPrinterEntry::JoinAll({a, b});
    EXPECT_EQ(value, "Label Printer|/dev/pts/7|/dev/pts/8|410|SIM1;Other|\\\\.\\pipe\\qrv-1||210");
    auto parsed = VirtualPrinterEntry::ParseAll(value + ";broken|x;x|y|z|999");
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[0].hidPath, "/dev/pts/8");
    EXPECT_EQ(parsed[1].hidPath, "");
    EXPECT_EQ(parsed[1].serial, "");
    EXPECT_THROW((VirtualPrinterEntry{"a;b", "p", "", "410", ""}.Format()), std::invalid_argument);
    EXPECT_THROW((VirtualPrinterEntry{"a", "", "", "410", ""}.Format()), std::invalid_argument);
}

TEST(SimText, WidePathsBecomeUtf8) {
    EXPECT_EQ(vela::sim::Utf8FromWide(L"/dev/pts/3"), "/dev/pts/3");
    EXPECT_EQ(vela::sim::Utf8FromWide(L"Dr\u00FCcker \u20AC"), "Dr\xC3\xBC"
                                                               "cker \xE2\x82\xAC");
    EXPECT_EQ(vela::sim::Utf8FromWide(std::wstring(1, wchar_t(0xD800))), "\xEF\xBF\xBD");
}
