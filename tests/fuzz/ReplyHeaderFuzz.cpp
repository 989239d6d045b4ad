// Reply headers: the parsers, GetReplyDataLength, PergeQueue and a print order's acknowledgement.

#include "FuzzSupport.h"

#include "common/ByteOrder.h"
#include "kom/protocol/ReplyParsers.h"

using namespace vela::fuzz;
using vela::kom::ByteView;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExactBytes stream = AfterControlByte(data, size);
    const ByteView header(stream.data(), stream.size());

    uint32_t checked = 0;
    if (RunParser([&] { checked = vela::kom::CheckedReplyPayloadLength(header); })) {
        // Accepted only with the start byte and a whole length field; the length is what the
        // header says, less the header itself (wrapping below 7).
        Check(stream.size() >= 5 && stream.data()[0] == 0xC3,
              "a header without start byte or length accepted");
        Check(checked == vela::common::ReadBigEndian32(stream.data() + 1) - 7, "wrong payload length");
    }
    RunParser([&] { vela::kom::AnnouncedPayloadLength(header, L"fuzz"); });

    // The same header through the channel, then the purge, which must swallow the library's failures.
    uint32_t length = 0;
    const bool read = RunOperation(data, size, [&](FuzzDevice& device) {
        vela::test::FakeTransport transport(L"fuzz-channel");
        length = device.GetReplyDataLength(transport);
        try {
            device.PergeQueue(transport);
        } catch (...) {
            Fail("PergeQueue let an exception out");
        }
    });
    if (read) {
        Check(stream.size() >= 7 && checked == length, "GetReplyDataLength disagrees with the header parser");
    }

    // A print control order reads its acknowledgement header without looking at the start byte.
    RunOperation(data, size, [](FuzzDevice& device) { device.PrintControlCommand(0x04); });
    return 0;
}
