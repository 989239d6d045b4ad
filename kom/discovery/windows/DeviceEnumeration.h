#pragma once

#include "kom/discovery/windows/DeviceEnumInfo.h"

#include <functional>
#include <vector>

namespace vela::kom {

// Decides whether an enumerated device is kept. Filters never throw (DeviceFilters.h).
using DeviceFilter = std::function<bool(const DeviceEnumInfo&)>;

// The interfaces of class `interfaceClassGuid` in `deviceInfoSet`, with their detail (the path)
// and device record filled, in enumeration order, those the filter keeps.
// Blocks on SetupAPI. Throws Win32Error ("EnumDeviceInterfaces") for any failure other than the
// normal end of the list. Any thread.
std::vector<DeviceEnumInfo> EnumDeviceInterfaces(HDEVINFO deviceInfoSet, const GUID& interfaceClassGuid,
                                                 const DeviceFilter& filter);

// The devices of `deviceInfoSet` (device records only), in enumeration order, those the filter
// keeps. Blocks on SetupAPI. Throws Win32Error ("EnumDeviceInterfaces", the shared context)
// for any failure other than the normal end of the list. Any thread.
std::vector<DeviceEnumInfo> EnumDevices(HDEVINFO deviceInfoSet, const DeviceFilter& filter);

} // namespace vela::kom
