// The folder detail reply (a library folder's name), decoded alone and through GetFolderDetail.

#include "FuzzSupport.h"

#include "kom/filesystem/FolderDetailReply.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        const std::string name = vela::kom::DecodeFolderDetailReply(payload, L"fuzz");
        Check(name.find('\0') == std::string::npos, "a folder name holding its terminator");
        Check(name.size() + 8 <= payload.size(), "a folder name longer than the reply");
    });
    RunOperation(data, size, [](FuzzDevice& device) { (void)device.GetFolderDetail(3); });
    return 0;
}
