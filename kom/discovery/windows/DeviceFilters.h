#pragma once

#include "kom/discovery/windows/DeviceEnumInfo.h"

#include <cfgmgr32.h>

namespace vela::kom {

// Filters for EnumDeviceInterfaces / EnumDevices. None of them throws: a device that cannot be
// read is logged as a warning and rejected, so one broken device never hides the others.
// Each call builds what it needs afresh; any thread.

// Keeps devices whose first hardware id names a supported model ("VID_xxxx" / "PID_xxxx").
// Blocks on the configuration manager.
bool UsbFilter(const DeviceEnumInfo& info);

// Keeps HID interfaces whose attributes name a supported model. Opens the interface path
// (no access rights, shared) to read them. Blocks on the HID driver.
bool HidFilter(const DeviceEnumInfo& info);

// Keeps devices whose parent device node is `parent`. The pointer form accepts a missing
// record, which is rejected with the warning "ParentFilter() failed: %s".
class ParentFilter {
public:
    explicit ParentFilter(DEVINST parent) : m_parent(parent) {}
    bool operator()(const DeviceEnumInfo& info) const { return (*this)(&info); }
    bool operator()(const DeviceEnumInfo* info) const;

private:
    DEVINST m_parent;
};

// Keeps devices whose parent's parent is `grandParent` (a HID interface and the printer
// device of one composite USB printer share it). Missing record: "GrandParentFilter() failed: %s".
class GrandParentFilter {
public:
    explicit GrandParentFilter(DEVINST grandParent) : m_grandParent(grandParent) {}
    bool operator()(const DeviceEnumInfo& info) const { return (*this)(&info); }
    bool operator()(const DeviceEnumInfo* info) const;

private:
    DEVINST m_grandParent;
};

} // namespace vela::kom
