#include "qrv/HostException.h"

#include "common/StringConverter.h"

namespace vela::printer::communication {

HostException::HostException(std::wstring message)
    : m_message(std::move(message)), m_utf8(vela::common::StringConverter::ToUtf8(m_message)) {}

} // namespace vela::printer::communication
