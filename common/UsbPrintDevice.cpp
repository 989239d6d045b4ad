#include "common/UsbPrintDevice.h"

#include "common/Log.h"

#include <algorithm>
#include <chrono>

namespace vela::common {

uint32_t UsbPrintDevice::WriteBytes(const uint8_t* data, uint32_t length) {
    uint32_t total = 0;
    while (total < length) {
        if (m_writeCallback) {
            m_writeCallback();
        }
        // A short chunk is no error: the next round goes on from where the device stopped.
        total += WriteChunk(data + total, std::min(length - total, kChunkSize));
    }
    return total;
}

// Every transaction opens the channel afresh, and nothing it reads may be older than its own
// request. Bytes already waiting belong to an earlier transaction that did not read its reply to
// the end: one that stopped at the corrupted header of a long reply, or a process killed between
// request and reply, while the printer may still be sending the rest. Read as the answer to the
// next request, they would fail that transaction and the ones after it until the channel ran
// dry. So when anything is waiting, the rest of that reply is drained too, until the channel has
// been quiet for a moment; a channel with nothing waiting costs no wait at all. The whole drain is
// bounded, so that a printer that keeps talking cannot hold the open up for long, and it never
// fails the open: the transfers report whatever is wrong with the channel.
void UsbPrintDevice::DiscardStaleInput() {
    const auto start = std::chrono::steady_clock::now();
    uint64_t dropped = DrainRawInput(0, kStaleLimitMs);
    if (dropped == 0) {
        return;
    }
    const auto spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    const uint32_t left =
        spent.count() < kStaleLimitMs ? kStaleLimitMs - static_cast<uint32_t>(spent.count()) : 0;
    dropped += DrainRawInput(kStaleQuietMs, left);
    Log::LogWarning(L"UsbPrintDevice::UsbPrintDevice(%s): discarded %u stale bytes", GetDevicePath(),
                    static_cast<uint32_t>(dropped));
}

} // namespace vela::common
