#include "common/Exception.h"
#include "kom/discovery/Ieee1284DeviceId.h"
#include "kom/discovery/ParseVidPid.h"
#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/VirtualPrinters.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#ifdef _WIN32
#include "common/StringConverter.h"
#include "common/SystemError.h"
#include "common/windows/GetPrinterNameByDeviceInstanceId.h"
#include "kom/discovery/windows/DeviceEnumeration.h"
#include "kom/discovery/windows/DeviceFilters.h"

#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>
#include <winspool.h>
#endif

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;

TEST(ParseVidPid, ReadsFourHexDigitsBehindEachMarker) {
    const std::tuple<const wchar_t*, uint32_t, uint32_t> rows[] = {
        {L"usb\\vid_0922&pid_0025&rev_0100", 0x0922, 0x0025},
        {L"USB\\VID_Fe1A&PID_0B2c&MI_00\\7&1a2b&0&0000", 0xFE1A, 0x0B2C},
        {L"HID\\VID_0922&PID_0024&MI_01\\8&2c&0&0000", 0x0922, 0x0024},
        // A missing marker reads the 4 characters from position 3 (lenient on purpose).
        {L"ABC1234&PID_0025", 0x1234, 0x0025},
        {L"ABC12", 0x12, 0x12},
        {L"AB", 0, 0},
    };
    for (const auto& [id, vendor, product] : rows) {
        uint32_t vendorId = 0xFFFF, productId = 0xFFFF;
        ParseVidPid(id, vendorId, productId);
        EXPECT_EQ(std::make_pair(vendorId, productId), std::make_pair(vendor, product)) << id;
    }
}

TEST(VirtualPrinters, ParsesEntriesAndSkipsMalformedOnesWithOneWarningEach) {
    const std::vector<std::wstring> malformed = {L"no model|/dev/pts/8||", L"|/dev/pts/9||410",
                                                 L"too|many|fields|410|serial|extra", L"no channel|||210",
                                                 L"wrong model|/dev/pts/3||310"};
    std::wstring value = L"\u00c9tiquettes Lager|/dev/pts/7|/tmp/hid.sock|410|SIM0001;;  ;"
                         L"Bench 210|\\\\.\\pipe\\qrv-sim||210;";
    for (const std::wstring& entry : malformed) {
        value += entry + L";";
    }
    LogCapture log;
    // Every test on a simulator reads the fields of a good entry this way.
    EXPECT_EQ(ParseVirtualPrinters(value).size(), 2u);
    EXPECT_EQ(log.Count(LogLevel::warning), 5u);
    for (const std::wstring& entry : malformed) {
        EXPECT_TRUE(log.ContainsSubstring(L"QRV_VIRTUAL_PRINTERS entry '" + entry + L"'")) << entry;
    }
}

TEST(Ieee1284DeviceId, ReadsKeysInAnyCaseAndTheirShortForms) {
    // The upper-case forms as the kernel reports them are read in tests/system (UdevDiscovery).
    EXPECT_EQ(Ieee1284DeviceId("mdl: QRV 210 ;SN:A1").Model(), "QRV 210");
    Ieee1284DeviceId broken(";;MFG;:x;MDL:;SERN:B2");
    EXPECT_EQ(broken.Manufacturer(), "");
    EXPECT_EQ(broken.Model(), "");
    EXPECT_EQ(broken.SerialNumber(), "B2");
}

TEST(PrintQueueMatcher, AcceptsTheFormsTheBackendWritesAndNothingElse) {
    PrintQueueMatcher printer({{"VELA", "VELA Labels"}, {"QRV 410", "VELA QRV 410"}, {"SIM0001"}});
    for (const char* uri : {
             "USB://vela/qrv%20410?SERIAL=sim0001",
             "usb://VELA/VELA%20QRV%20410?interface=0&serial=SI%4D0001",
             "usb://VELA%20Labels/QRV%20410?serial=%53I%4d0001",
         }) {
        EXPECT_TRUE(printer.Matches(uri)) << uri;
    }
    for (const char* uri : {
             "usb://ACME/QRV%20410?serial=SIM0001", // another make
             "usb://VELA/QRV%20410",                // no serial, but the printer has one
             "usb://VELA/QRV%20410?serial=",        // an empty serial is no serial
             "ipp://VELA/QRV%20410?serial=SIM0001", // not a USB device
             "usb://VELA?serial=SIM0001",           // no model
             "usb:/VELA/QRV%20410?serial=SIM0001",
             "",
         }) {
        EXPECT_FALSE(printer.Matches(uri)) << uri;
    }

    PrintQueueMatcher withoutSerial({{"VELA"}, {"QRV 210"}, {}});
    EXPECT_TRUE(withoutSerial.Matches("usb://VELA/QRV%20210"));
    EXPECT_TRUE(withoutSerial.Matches("usb://VELA/QRV%20210?interface=1"));
    EXPECT_FALSE(withoutSerial.Matches("usb://VELA/QRV%20210?serial=X"));
}

#ifdef _WIN32
// SetupAPI, the configuration manager and the spooler, as far as wine has them.
namespace {

// A record for a device node handle that names no device.
DeviceEnumInfo RecordWithPath(const std::wstring& path) {
    DeviceEnumInfo info;
    info.SetInterfaceDetail(static_cast<DWORD>(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) + path.size() * 2));
    std::copy(path.begin(), path.end(), info.interfaceDetail->DevicePath);
    info.devInfoData.DevInst = 0x7ffffff0;
    return info;
}

// Print queues written into the spooler's registry, where wine's spooler reads them from.
class RegistryQueues {
public:
    ~RegistryQueues() {
        for (const std::wstring& name : m_names) {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kRoot + name).c_str());
        }
    }
    bool Add(const std::wstring& name, DWORD attributes, const wchar_t* deviceInstanceId) {
        m_names.push_back(name);
        const std::wstring key = kRoot + name;
        bool ok = RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Attributes", REG_DWORD, &attributes,
                                  sizeof(attributes)) == ERROR_SUCCESS;
        for (const auto& [value, text] :
             std::vector<std::pair<const wchar_t*, std::wstring>>{{L"Name", name},
                                                                  {L"Port", L"FILE:"},
                                                                  {L"Printer Driver", L"Generic / Text Only"},
                                                                  {L"Print Processor", L"winprint"},
                                                                  {L"Datatype", L"RAW"}}) {
            ok = ok && Set(key, value, text);
        }
        return ok && (deviceInstanceId == nullptr ||
                      Set(key + L"\\PnPData", L"DeviceInstanceId", deviceInstanceId));
    }

private:
    static bool Set(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
        return RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(),
                               static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
    }
    const std::wstring kRoot = L"System\\CurrentControlSet\\Control\\Print\\Printers\\";
    std::vector<std::wstring> m_names;
};

} // namespace

TEST(WindowsDiscovery, BrokenSetsThrowAndUnreadableDevicesAreRejectedAfterOneWarning) {
    LogCapture log;
    auto any = [](const DeviceEnumInfo&) { return true; };
    HDEVINFO empty = SetupDiCreateDeviceInfoList(nullptr, nullptr);
    EXPECT_TRUE(EnumDevices(empty, any).empty());
    SetupDiDestroyDeviceInfoList(empty);
    try {
        EnumDevices(INVALID_HANDLE_VALUE, any);
        ADD_FAILURE() << "no exception";
    } catch (const vela::common::Win32Error& e) {
        EXPECT_EQ(e.ErrorCode(), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    }
    DeviceEnumInfo withPath = RecordWithPath(L"\\\\?\\hid#qrv-missing#0");
    DeviceEnumInfo copy = withPath; // a copy points into its own buffer
    EXPECT_STREQ(copy.interfaceDetail->DevicePath, L"\\\\?\\hid#qrv-missing#0");
    // Each filter rejects a device it cannot read and says so, under its own name.
    const std::vector<std::pair<std::wstring, std::function<bool()>>> filters = {
        {L"HidFilter", [&] { return HidFilter(withPath); }},
        {L"UsbFilter", [&] { return UsbFilter(withPath); }},
        {L"ParentFilter", [&] { return ParentFilter(1)(withPath); }},
        {L"GrandParentFilter", [&] { return GrandParentFilter(1)(withPath); }},
        {L"ParentFilter", [&] { return ParentFilter(1)(nullptr); }}};
    for (const auto& [name, filter] : filters) {
        log.Clear();
        EXPECT_FALSE(filter());
        EXPECT_TRUE(log.ContainsSubstring(name)) << vela::common::StringConverter::ToUtf8(name);
    }
}

TEST(WindowsDiscovery, SpoolerLookUpOpensLocalQueuesOnlyAndIgnoresLetterCase) {
    EXPECT_FALSE(
        vela::common::GetPrinterNameByDeviceInstanceId(L"USBPRINT\\VELAQRV_410\\NO-SUCH").HasValue());
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr) {
        GTEST_SKIP() << "needs wine's registry-backed spooler";
    }
    RegistryQueues queues;
    ASSERT_TRUE(queues.Add(L"QRV Ohne PnP", PRINTER_ATTRIBUTE_LOCAL, nullptr));
    ASSERT_TRUE(queues.Add(L"QRV Remote", PRINTER_ATTRIBUTE_NETWORK, L"USBPRINT\\VELAQRV_410\\REMOTE-ONLY"));
    ASSERT_TRUE(queues.Add(L"\u00c9tiquettes Lager", PRINTER_ATTRIBUTE_LOCAL,
                           L"USBPRINT\\VELAQRV_410\\7&2A3B4C&0&USB001"));
    LogCapture log;
    vela::common::Option name =
        vela::common::GetPrinterNameByDeviceInstanceId(L"usbprint\\velaqrv_410\\7&2a3b4c&0&usb001");
    ASSERT_TRUE(name.HasValue());
    EXPECT_EQ(name.Value(), L"\u00c9tiquettes Lager");
    // The queue without plug-and-play data costs one information line; the search went on.
    EXPECT_TRUE(
        log.Contains(L"GetPrinterNameByDeviceInstanceId(): unable to get printer data for 'QRV Ohne PnP': "
                     L"result code is 2, (" +
                     vela::common::SystemErrorText(2) + L")"));
    EXPECT_FALSE(
        vela::common::GetPrinterNameByDeviceInstanceId(L"USBPRINT\\VELAQRV_410\\REMOTE-ONLY").HasValue());
    EXPECT_FALSE(log.ContainsSubstring(L"QRV Remote")) << "a remote queue is never opened";
}
#endif
