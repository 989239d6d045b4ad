#include "sim/FaultPlan.h"

namespace vela::sim {

Fault Fault::CorruptStartByte(uint8_t startByte) {
    Fault f;
    f.kind = FaultKind::corruptStartByte;
    f.value = startByte;
    return f;
}

Fault Fault::WrongReplyLength(int32_t payloadDelta) {
    Fault f;
    f.kind = FaultKind::wrongReplyLength;
    f.lengthDelta = payloadDelta;
    return f;
}

Fault Fault::WrongCommandByte(std::optional<uint8_t> commandByte) {
    Fault f;
    f.kind = FaultKind::wrongCommandByte;
    f.value = commandByte;
    return f;
}

Fault Fault::Silence() {
    Fault f;
    f.kind = FaultKind::silence;
    return f;
}

Fault Fault::StaleBytes(std::vector<uint8_t> bytes) {
    Fault f;
    f.kind = FaultKind::staleBytes;
    f.bytes = std::move(bytes);
    return f;
}

Fault Fault::DisconnectAfter(uint64_t bytes, ByteDirection direction,
                             std::chrono::milliseconds reconnectAfter) {
    Fault f;
    f.kind = FaultKind::disconnectAfterBytes;
    f.byteCount = bytes;
    f.direction = direction;
    f.reconnectAfter = reconnectAfter;
    return f;
}

Fault Fault::BusyForever() {
    Fault f;
    f.kind = FaultKind::busyForever;
    return f;
}

Fault Fault::CompletionResult(uint8_t code) {
    Fault f;
    f.kind = FaultKind::completionResult;
    f.value = code;
    return f;
}

Fault& Fault::Persistent(bool isPersistent) {
    persistent = isPersistent;
    return *this;
}

Fault& Fault::For(RequestKind kind) {
    onlyFor = kind;
    return *this;
}

std::optional<Fault> FaultPlan::Take(FaultKind kind, RequestKind request) {
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        if (it->kind != kind || (it->onlyFor && *it->onlyFor != request)) {
            continue;
        }
        Fault fault = *it;
        if (!fault.persistent) {
            m_faults.erase(it);
        }
        return fault;
    }
    return std::nullopt;
}

} // namespace vela::sim
