#include "kom/discovery/ParseVidPid.h"

#include <cwchar>
#include <cwctype>

namespace vela::kom {

namespace {

uint32_t ReadGroup(const std::wstring& id, const wchar_t* marker) {
    // A missing marker is position -1 on purpose (see the header): the group then starts at 3.
    std::wstring::size_type found = id.find(marker);
    long position = found == std::wstring::npos ? -1 : static_cast<long>(found);
    size_t start = static_cast<size_t>(position + 4);
    if (start >= id.size()) {
        return 0;
    }
    std::wstring group = id.substr(start, 4);
    return static_cast<uint32_t>(std::wcstol(group.c_str(), nullptr, 16));
}

} // namespace

void ParseVidPid(const std::wstring& hardwareId, uint32_t& vendorId, uint32_t& productId) {
    std::wstring id = hardwareId;
    for (wchar_t& c : id) {
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    }
    vendorId = ReadGroup(id, L"VID_");
    productId = ReadGroup(id, L"PID_");
}

} // namespace vela::kom
