#pragma once

#include "kom/QRVException.h"

namespace vela::kom {

// A reply that does not begin with a message header: most often the rest of a reply that an
// earlier transaction left unread (a killed process, a cancelled get), still arriving; or one
// whose header announces far more than any reply held whole, most likely the late reply to a
// request an earlier process gave up on. It is the ReplyException "'Header corrupted'" (or
// "'Wrong reply size'") to every caller; its own type lets a transaction that may safely be
// repeated drain the channel and try once more instead of failing.
class CorruptReplyHeader : public ReplyException {
public:
    using ReplyException::ReplyException;
};

} // namespace vela::kom
