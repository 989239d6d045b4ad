#pragma once

#include "sim/Md5.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela::sim {

// Hashes the file data of a put request while its bytes arrive, so that a large file is verified
// the moment its last byte is in rather than in one more pass over it, which the host would wait
// for. It sees the message in progress after every read from the channel; anything that is not a
// well-formed put head is left to the ordinary one-pass check. Not thread-safe (the printer
// engine serialises its use).
class ArrivingPutDigest {
public:
    // `message` holds the first `received` bytes of the message in progress: the same message, at
    // the same or a greater length, on every call until Reset. Hashes the data bytes not yet seen.
    void Advance(const uint8_t* message, size_t received);

    // The digest of the `dataLength` data bytes of the complete put `frame`: taken from the bytes
    // hashed on arrival when they cover exactly that data, otherwise computed from the frame now.
    // Starts afresh for the next message.
    Md5::Digest DigestOf(const std::vector<uint8_t>& frame, size_t dataLength);

    // The message in progress was dropped or completed: forget it.
    void Reset();

private:
    enum class State { undecided, put, other };
    State m_state = State::undecided;
    size_t m_received = 0;
    size_t m_dataLength = 0;
    size_t m_hashed = 0; // data bytes fed to m_md5
    Md5 m_md5;
};

} // namespace vela::sim
