// A get replaces the host file by exactly the declared bytes or leaves it, and nothing beside it.

#include "FuzzSupport.h"

#include "kom/filesystem/FileDataReply.h"
#include "support/TestSupport.h"

#include <string>

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<uint8_t> kOriginal{'o', 'r', 'i', 'g', 'i', 'n', 'a', 'l'};
    // Removed at exit; fuzz-run puts it on a memory file system (the host writer flushes to disk).
    static const vela::test::TempDir folder;
    const std::string target = folder.File("received.bin");
    const std::wstring hostFile = folder.WFile("received.bin");
    const auto checkNothingElse = [&] {
        Check(vela::test::ListDirectory(folder.Path()) == std::vector<std::string>{"received.bin"},
              "a temporary file was left beside the host file");
    };

    // The pure check: a length it accepts lies inside the reply.
    const ExactBytes payload = PayloadAfterHeader(data, size);
    const auto length = vela::kom::FileDataLength(payload.data(), payload.size(), payload.size());
    if (length) {
        Check(uint64_t(*length) + vela::kom::kFileReplyDataOffset <= payload.size(),
              "a data length past the reply");
    }

    // SaveFile with the payload as the reply.
    vela::test::WriteHostFile(target, kOriginal);
    const bool saved =
        RunOperation(data, size, [&](FuzzDevice& device) { device.SaveFile(hostFile, payload); });
    const std::vector<uint8_t> afterSave = vela::test::ReadHostFile(target);
    if (saved) {
        Check(length.has_value(), "SaveFile accepted a reply the length check refuses");
        const uint8_t* begin = payload.data() + vela::kom::kFileReplyDataOffset;
        Check(afterSave == std::vector<uint8_t>(begin, begin + *length),
              "SaveFile wrote other bytes than declared");
    } else {
        Check(afterSave == kOriginal, "a failed SaveFile changed the host file");
    }
    checkNothingElse();

    // GetFile through the channel.
    vela::test::WriteHostFile(target, kOriginal);
    int32_t result = 0;
    const bool got = RunOperation(
        data, size, [&](FuzzDevice& device) { result = device.GetFile(L"/fuzz/file.bin", hostFile); });
    const std::vector<uint8_t> afterGet = vela::test::ReadHostFile(target);
    if (!got || result != 0) {
        Check(afterGet == kOriginal, "a failed or refused get changed the host file");
    }
    checkNothingElse();
    return 0;
}
