// The folder listing text, parsed alone and through GetFolderContent: a directory has size 0.

#include "FuzzSupport.h"

#include "kom/filesystem/FolderListingParser.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The listing text alone: everything after the control byte.
    const ExactBytes text = AfterControlByte(data, size);
    RunParser([&] {
        const auto entries = vela::kom::ParseFolderListing(text.data(), text.size(), L"fuzz");
        for (const auto& entry : entries) {
            Check(entry.isFile || entry.size == 0, "a directory with a size");
            Check(entry.name.size() < text.size(), "an entry name longer than the text");
        }
    });
    if (text.size() > 0) {
        (void)vela::kom::ParseListingSize(reinterpret_cast<const char*>(text.data()), text.size());
    }

    RunOperation(data, size, [](FuzzDevice& device) {
        for (const auto& entry : device.GetFolderContent(L"/mnt/data/images")) {
            Check(entry->IsFile() != entry->IsDirectory(), "an entry that is both or neither");
            Check(entry->IsFile() || entry->Size() == 0, "a directory with a size");
        }
    });
    return 0;
}
