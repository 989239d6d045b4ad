#pragma once

namespace vela::common {

// The operating system's handle for an open file, device or event: a HANDLE on Windows, a file
// descriptor on Linux. Kept opaque here so that portable headers need no system header.
#ifdef _WIN32
using NativeHandle = void*;
inline NativeHandle InvalidNativeHandle() {
    return reinterpret_cast<void*>(~static_cast<unsigned long long>(0));
}
#else
using NativeHandle = int;
inline constexpr NativeHandle InvalidNativeHandle() {
    return -1;
}
#endif

// Windows: neither null nor INVALID_HANDLE_VALUE. Linux: not negative.
bool IsValidNativeHandle(NativeHandle handle);

// Closes the handle; returns false (with the last system error set) when the system refused.
bool CloseNativeHandle(NativeHandle handle);

// Owns one handle and closes it on destruction (close failures are ignored here; owners that
// must log a failed close call Close() themselves).
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(NativeHandle handle) : m_handle(handle) {}
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    ~UniqueHandle() { Reset(); }

    NativeHandle Get() const { return m_handle; }
    bool IsValid() const { return IsValidNativeHandle(m_handle); }
    NativeHandle Release() {
        NativeHandle h = m_handle;
        m_handle = InvalidNativeHandle();
        return h;
    }
    void Reset(NativeHandle handle = InvalidNativeHandle()) {
        if (IsValid()) {
            CloseNativeHandle(m_handle);
        }
        m_handle = handle;
    }
    // Closes now and reports whether the system accepted; the handle is invalid afterwards.
    bool Close() {
        if (!IsValid()) {
            return true;
        }
        return CloseNativeHandle(Release());
    }

private:
    NativeHandle m_handle = InvalidNativeHandle();
};

} // namespace vela::common
