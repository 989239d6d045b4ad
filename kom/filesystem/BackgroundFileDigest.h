#pragma once

#include <exception>
#include <string>
#include <thread>
#include <vector>

namespace vela::kom {

// The MD5 digest of a host file, read by a thread of its own: a put message needs the digest only
// for its last 16 bytes, so the file's second, independent reading runs while the rest of the
// message goes out instead of before it (for a large file the reading would otherwise leave the
// channel idle for as long as it takes).
//
// Construct on the calling thread; Take from the same thread. The destructor waits for the
// reading to end (it reads the file once, so the wait is bounded by the file's size) and never
// throws. When no thread can be started, Take reads the file itself.
class BackgroundFileDigest {
public:
    // Starts reading `hostFileName`; `source` is the source text of a failure.
    BackgroundFileDigest(std::wstring hostFileName, std::wstring source);
    ~BackgroundFileDigest();
    BackgroundFileDigest(const BackgroundFileDigest&) = delete;
    BackgroundFileDigest& operator=(const BackgroundFileDigest&) = delete;

    // Blocks until the reading is done and returns the 16-byte digest. Throws the MD5Exception
    // of a failed reading ("'Couldn't hash the file'", or the hash object's own failure). Call
    // once.
    std::vector<uint8_t> Take();

private:
    void Read() noexcept;

    std::wstring m_hostFileName;
    std::wstring m_source;
    std::vector<uint8_t> m_digest;
    std::exception_ptr m_failure;
    std::thread m_thread;
};

} // namespace vela::kom
