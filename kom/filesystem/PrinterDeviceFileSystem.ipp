// File-system half of PrinterDeviceBase: path rules, file transfer, listings, rename, delete,
// folder detail and disk space. Included by PrinterDeviceBase.h only.
#pragma once

#include "common/Exception.h"
#include "common/LogAndThrow.h"

namespace vela::kom {

#define QRV_FILESYSTEM_TODO(name)                                                                         \
    vela::common::LogAndThrow(vela::common::NotImplementedException(L"not yet built", L"PrinterDevice::" name "()"))

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::GetDiskSpace(uint64_t&, uint64_t&) { QRV_FILESYSTEM_TODO(L"GetDiskSpace"); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetFolderDetail(uint8_t) { QRV_FILESYSTEM_TODO(L"GetFolderDetail"); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetJobFileLibraryPath() { return GetFolderDetail(1); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetTemplateLibraryPath() { return GetFolderDetail(2); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetImageLibraryPath() { return GetFolderDetail(3); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetUpdateLibraryPath() { return GetFolderDetail(4); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::GetFile(const std::wstring&, const std::wstring&) { QRV_FILESYSTEM_TODO(L"GetFile"); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::PutFile(const std::wstring&, const std::wstring&) { QRV_FILESYSTEM_TODO(L"PutFile"); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::RenameFile(const std::wstring&, const std::wstring&) { QRV_FILESYSTEM_TODO(L"RenameFile"); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::DeleteFile(const std::wstring&) { QRV_FILESYSTEM_TODO(L"DeleteFile"); }
template <class T, class S, class C> std::vector<std::unique_ptr<PathInfo>> PrinterDeviceBase<T, S, C>::GetFolderContent(const std::wstring&) { QRV_FILESYSTEM_TODO(L"GetFolderContent"); }
template <class T, class S, class C> std::vector<uint8_t> PrinterDeviceBase<T, S, C>::LoadFile(const std::wstring&) { QRV_FILESYSTEM_TODO(L"LoadFile"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::SaveFile(const std::wstring&, std::vector<uint8_t>) { QRV_FILESYSTEM_TODO(L"SaveFile"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::CheckPath(const std::wstring&) const { QRV_FILESYSTEM_TODO(L"CheckPath"); }
template <class T, class S, class C> bool PrinterDeviceBase<T, S, C>::IsValidFileName(const std::wstring&) const { QRV_FILESYSTEM_TODO(L"IsValidFileName"); }

#undef QRV_FILESYSTEM_TODO

} // namespace vela::kom
