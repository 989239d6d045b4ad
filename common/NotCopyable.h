#pragma once

namespace vela::common {

// Base for owners of system resources: copying one would close the resource twice.
class NotCopyable {
protected:
    NotCopyable() = default;
    ~NotCopyable() = default;

public:
    NotCopyable(const NotCopyable&) = delete;
    NotCopyable& operator=(const NotCopyable&) = delete;
};

} // namespace vela::common
