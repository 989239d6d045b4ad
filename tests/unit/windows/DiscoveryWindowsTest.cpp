#include "common/SystemError.h"
#include "common/windows/GetPrinterNameByDeviceInstanceId.h"
#include "kom/discovery/QRVPrinters.h"
#include "kom/discovery/windows/DeviceEnumeration.h"
#include "kom/discovery/windows/DeviceFilters.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>
#include <winspool.h>

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;

namespace {

// A device node handle that names no device.
constexpr DEVINST NoSuchNode = 0x7ffffff0;

DeviceEnumInfo RecordWithPath(const std::wstring& path) {
    DeviceEnumInfo info;
    info.SetInterfaceDetail(static_cast<DWORD>(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) + path.size() * 2));
    std::copy(path.begin(), path.end(), info.interfaceDetail->DevicePath);
    info.devInfoData.DevInst = NoSuchNode;
    return info;
}

size_t CountStartingWith(const LogCapture& log, const std::wstring& prefix) {
    size_t n = 0;
    for (const auto& line : log.Lines()) {
        n += line.text.compare(0, prefix.size(), prefix) == 0 ? 1 : 0;
    }
    return n;
}

// Owns a SetupAPI set for the test.
struct TestSet {
    explicit TestSet(HDEVINFO set) : handle(set) {}
    ~TestSet() {
        if (handle != INVALID_HANDLE_VALUE) {
            SetupDiDestroyDeviceInfoList(handle);
        }
    }
    HDEVINFO handle;
};

} // namespace

TEST(DeviceEnumInfo, SizesTheDetailRecordForThisPlatform) {
    DeviceEnumInfo info;
    EXPECT_EQ(info.devInfoData.cbSize, sizeof(SP_DEVINFO_DATA));
    EXPECT_EQ(info.interfaceData.cbSize, sizeof(SP_DEVICE_INTERFACE_DATA));
    EXPECT_EQ(info.interfaceDetail, nullptr);

    info.SetInterfaceDetail(200);
    ASSERT_NE(info.interfaceDetail, nullptr);
    EXPECT_EQ(info.detailBuffer.size(), 200u);
    EXPECT_EQ(static_cast<void*>(info.interfaceDetail), static_cast<void*>(info.detailBuffer.data()));
    EXPECT_EQ(info.interfaceDetail->cbSize, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W));
#ifdef _WIN64
    EXPECT_EQ(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W), 8u);
    EXPECT_EQ(sizeof(SP_DEVINFO_DATA), 32u);
#endif

    // Copies point into their own buffer, so the original may go away.
    DeviceEnumInfo copy;
    {
        DeviceEnumInfo original = RecordWithPath(L"\\\\?\\usb#copy");
        copy = original;
        DeviceEnumInfo constructed(original);
        EXPECT_EQ(static_cast<void*>(constructed.interfaceDetail),
                  static_cast<void*>(constructed.detailBuffer.data()));
    }
    EXPECT_EQ(static_cast<void*>(copy.interfaceDetail), static_cast<void*>(copy.detailBuffer.data()));
    EXPECT_STREQ(copy.interfaceDetail->DevicePath, L"\\\\?\\usb#copy");

    LogCapture log;
    info.SetInterfaceDetail(0);
    EXPECT_EQ(info.interfaceDetail, nullptr);
    EXPECT_TRUE(info.detailBuffer.empty());
    EXPECT_TRUE(log.Contains(L"DeviceEnumInfo.SetInterfaceDetail(): DeviceInterfaceDetail = NULL"));
    DeviceEnumInfo emptyCopy(info);
    EXPECT_EQ(emptyCopy.interfaceDetail, nullptr);
}

TEST(DeviceEnumeration, EmptySetsGiveEmptyListsAndBrokenSetsThrow) {
    LogCapture log;
    TestSet empty(SetupDiCreateDeviceInfoList(nullptr, nullptr));
    ASSERT_NE(empty.handle, INVALID_HANDLE_VALUE);
    int calls = 0;
    auto count = [&calls](const DeviceEnumInfo&) { return ++calls > 0; };
    GUID anyGuid = {0x28d78fad, 0x5a12, 0x11d1, {0xae, 0x5b, 0x00, 0x00, 0xf8, 0x03, 0xa8, 0xc2}};
    EXPECT_TRUE(EnumDeviceInterfaces(empty.handle, anyGuid, count).empty());
    EXPECT_TRUE(EnumDevices(empty.handle, count).empty());
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(log.Count(LogLevel::error), 0u);

    try {
        EnumDevices(INVALID_HANDLE_VALUE, count);
        ADD_FAILURE() << "no exception";
    } catch (const vela::common::Win32Error& e) {
        EXPECT_EQ(e.Source(), L"EnumDeviceInterfaces");
        EXPECT_EQ(e.ErrorCode(), static_cast<uint32_t>(ERROR_INVALID_HANDLE));
    }
    EXPECT_THROW(EnumDeviceInterfaces(INVALID_HANDLE_VALUE, anyGuid, count), vela::common::Win32Error);
    EXPECT_EQ(log.Count(LogLevel::error), 2u);
}

TEST(DeviceFilters, RejectUnreadableDevicesAfterOneWarning) {
    LogCapture log;
    DeviceEnumInfo withPath = RecordWithPath(L"\\\\?\\hid#qrv-missing#0");
    DeviceEnumInfo withoutPath;
    withoutPath.devInfoData.DevInst = NoSuchNode;

    EXPECT_FALSE(HidFilter(withPath));
    EXPECT_EQ(CountStartingWith(log, L"HidFilter() for '\\\\?\\hid#qrv-missing#0' failed: Win32 error 0x"),
              1u);

    EXPECT_FALSE(UsbFilter(withoutPath));
    EXPECT_EQ(
        CountStartingWith(log, L"UsbFilter: CM_Get_DevNode_Registry_Property for '2147483632' failed: "), 1u);

    EXPECT_FALSE(ParentFilter(1)(withoutPath));
    EXPECT_FALSE(ParentFilter(1)(withPath));
    EXPECT_FALSE(ParentFilter(1)(nullptr));
    EXPECT_EQ(CountStartingWith(log, L"ParentFilter() for '2147483632' failed: Configuration Manager Error "),
              1u);
    EXPECT_EQ(CountStartingWith(log, L"ParentFilter() for '\\\\?\\hid#qrv-missing#0' failed: Configuration "
                                     L"Manager Error "),
              1u);
    EXPECT_TRUE(log.Contains(L"ParentFilter() failed: Configuration Manager Error 3"));

    EXPECT_FALSE(GrandParentFilter(1)(withoutPath));
    EXPECT_FALSE(GrandParentFilter(1)(withPath));
    EXPECT_FALSE(GrandParentFilter(1)(nullptr));
    EXPECT_EQ(
        CountStartingWith(log, L"GrandParentFilter() for '2147483632' failed: Configuration Manager Error "),
        1u);
    EXPECT_EQ(CountStartingWith(log, L"GrandParentFilter() for '\\\\?\\hid#qrv-missing#0' failed: "), 1u);
    EXPECT_TRUE(log.Contains(L"GrandParentFilter() failed: Configuration Manager Error 3"));
}

TEST(PrinterDiscovery, EnumeratesWithoutErrorAndOnlySupportedPrinters) {
    LogCapture log;
    QRVPrinters printers;
    for (const ConnectedPrinter& row : printers.GetConnectedPrinters()) {
        EXPECT_TRUE(printers.IsSupported(row.vendorId, row.productId)) << row.devicePath;
        EXPECT_FALSE(row.printerName.empty());
    }
    for (const ConnectedPrinter& row : printers.GetConnectedHidDevices()) {
        EXPECT_TRUE(printers.IsSupported(row.vendorId, row.productId)) << row.devicePath;
    }
    EXPECT_EQ(log.Count(LogLevel::error), 0u);
}

TEST(PrinterDiscovery, SpoolerLookUpOfAnUnknownDeviceIsNone) {
    LogCapture log;
    vela::common::Option name =
        vela::common::GetPrinterNameByDeviceInstanceId(L"USBPRINT\\VELAQRV_410\\7&QRV-NO-SUCH&0&USB001");
    EXPECT_FALSE(name.HasValue());
    EXPECT_EQ(log.Count(LogLevel::error), 0u);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
}

namespace {

// Print queues written straight into the spooler's registry, where wine's spooler reads them
// from; removed again at destruction. Lets the look-up meet local, remote and incomplete queues.
class RegistryQueues {
public:
    ~RegistryQueues() {
        for (const std::wstring& name : m_names) {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, (Root() + name).c_str());
        }
    }
    bool Add(const std::wstring& name, DWORD attributes, const wchar_t* deviceInstanceId) {
        HKEY key = nullptr;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, (Root() + name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, &key, nullptr) != ERROR_SUCCESS) {
            return false;
        }
        m_names.push_back(name);
        bool ok = SetString(key, L"Name", name) && SetString(key, L"Port", L"FILE:") &&
                  SetString(key, L"Printer Driver", L"Generic / Text Only") &&
                  SetString(key, L"Print Processor", L"winprint") && SetString(key, L"Datatype", L"RAW") &&
                  RegSetValueExW(key, L"Attributes", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&attributes),
                                 sizeof(attributes)) == ERROR_SUCCESS;
        if (ok && deviceInstanceId != nullptr) {
            HKEY pnp = nullptr;
            ok = RegCreateKeyExW(key, L"PnPData", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &pnp, nullptr) ==
                     ERROR_SUCCESS &&
                 SetString(pnp, L"DeviceInstanceId", deviceInstanceId);
            if (pnp != nullptr) {
                RegCloseKey(pnp);
            }
        }
        RegCloseKey(key);
        return ok;
    }

private:
    static std::wstring Root() { return L"System\\CurrentControlSet\\Control\\Print\\Printers\\"; }
    static bool SetString(HKEY key, const wchar_t* name, const std::wstring& value) {
        return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                              static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
    }
    std::vector<std::wstring> m_names;
};

} // namespace

TEST(PrinterDiscovery, SpoolerLookUpOpensLocalQueuesOnlyAndIgnoresLetterCase) {
    // Writing queues into the registry only reaches wine's spooler; a real one keeps its own.
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr) {
        GTEST_SKIP() << "needs wine's registry-backed spooler";
    }
    RegistryQueues queues;
    const wchar_t* id = L"USBPRINT\\VELAQRV_410\\7&2A3B4C&0&USB001";
    ASSERT_TRUE(queues.Add(L"QRV Ohne PnP", PRINTER_ATTRIBUTE_LOCAL, nullptr));
    ASSERT_TRUE(queues.Add(L"QRV Remote", PRINTER_ATTRIBUTE_NETWORK, L"USBPRINT\\VELAQRV_410\\REMOTE-ONLY"));
    ASSERT_TRUE(queues.Add(L"Étiquettes Lager", PRINTER_ATTRIBUTE_LOCAL, id));

    LogCapture log;
    vela::common::Option name =
        vela::common::GetPrinterNameByDeviceInstanceId(L"usbprint\\velaqrv_410\\7&2a3b4c&0&usb001");
    ASSERT_TRUE(name.HasValue());
    EXPECT_EQ(name.Value(), L"Étiquettes Lager");
    // The queue without plug-and-play data costs one information line; the search went on.
    EXPECT_TRUE(
        log.Contains(L"GetPrinterNameByDeviceInstanceId(): unable to get printer data for 'QRV Ohne PnP': "
                     L"result code is 2, (" +
                     vela::common::SystemErrorText(2) + L")"));
    EXPECT_EQ(log.Lines().size(), 1u);

    // The remote queue is never opened, so its id never matches.
    log.Clear();
    EXPECT_FALSE(
        vela::common::GetPrinterNameByDeviceInstanceId(L"USBPRINT\\VELAQRV_410\\REMOTE-ONLY").HasValue());
    EXPECT_EQ(log.Count(LogLevel::info), 1u);
    EXPECT_FALSE(log.ContainsSubstring(L"QRV Remote"));
}
