#include "common/Option.h"

#include "common/Exception.h"
#include "common/LogAndThrow.h"

namespace vela::common {

std::wstring NoneImpl::Value() const {
    LogAndThrow(InvalidOperationException(L"Option::None has no value", L"Option::None"));
}

} // namespace vela::common
