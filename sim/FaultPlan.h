#pragma once

#include "sim/RequestDecoder.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace vela::sim {

enum class FaultKind {
    corruptStartByte,     // the reply starts with `value` instead of 0xC3
    wrongReplyLength,     // the reply's payload is `lengthDelta` bytes longer (or shorter); its header
                          // states the changed length, so the framing stays intact
    wrongCommandByte,     // payload byte 1 of the reply is `value` (default: the right byte ^ 0x01)
    silence,              // the request gets no reply at all
    staleBytes,           // `bytes` go out just before the reply (default: an old completion reply)
    disconnectAfterBytes, // the channel drops once `byteCount` more bytes have passed (see below)
    busyForever,          // the file-system operation never finishes: every poll answers busy
    completionResult,     // the file-system operation finishes with result code `value` (0..255);
                          // unless that code is 0 the operation changes nothing
};

// Which bytes a disconnect fault counts.
enum class ByteDirection { both, toPrinter, fromPrinter };

// One injected fault. One-shot by default: it fires once, at the first request it applies to,
// and is gone. A persistent fault fires at every such request until the faults are cleared.
//
// Reply faults (the first five) apply to the reply the printer is about to send; requests that
// get no reply (control orders, file-system commands) leave them armed. `For(kind)` narrows a
// fault to replies to that kind of request. Completion faults (busyForever, completionResult)
// apply to the next file-system operation (put, get, delete, rename, listing), narrowed the same
// way by the operation's kind.
//
// disconnectAfterBytes counts, from the moment it is injected, the bytes of the exchange in the
// chosen direction (both: requests and replies together). When the count is reached the printer
// stops reading and writing mid-message (a reply is cut at that byte, the rest of a request is
// dropped), drops the channel and plugs it in again after `reconnectAfter`. A persistent one
// starts counting afresh after each reconnection. `For` does not apply to it.
struct Fault {
    FaultKind kind = FaultKind::silence;
    bool persistent = false;
    std::optional<RequestKind> onlyFor;
    std::optional<uint8_t> value;
    int32_t lengthDelta = 0;
    std::vector<uint8_t> bytes;
    uint64_t byteCount = 0;
    ByteDirection direction = ByteDirection::both;
    std::chrono::milliseconds reconnectAfter{1000};

    static Fault CorruptStartByte(uint8_t startByte = 0x3C);
    static Fault WrongReplyLength(int32_t payloadDelta);
    static Fault WrongCommandByte(std::optional<uint8_t> commandByte = std::nullopt);
    static Fault Silence();
    static Fault StaleBytes(std::vector<uint8_t> bytes = {});
    static Fault DisconnectAfter(uint64_t bytes, ByteDirection direction = ByteDirection::both,
                                 std::chrono::milliseconds reconnectAfter = std::chrono::milliseconds{1000});
    static Fault BusyForever();
    static Fault CompletionResult(uint8_t code);

    Fault& Persistent(bool persistent = true);
    Fault& For(RequestKind kind);
};

// The faults armed in a printer. Not thread-safe: the engine serialises it.
class FaultPlan {
public:
    void Add(Fault fault) { m_faults.push_back(std::move(fault)); }
    void Clear() { m_faults.clear(); }
    const std::vector<Fault>& Armed() const { return m_faults; }

    // The first armed fault of `kind` that applies to `request`; a one-shot fault is disarmed.
    std::optional<Fault> Take(FaultKind kind, RequestKind request);

private:
    std::vector<Fault> m_faults;
};

} // namespace vela::sim
