#include "ProcessSetup.h"

namespace vela::qrvctl {

// The Windows heap needs no setting for the tool's few threads.
void ProcessSetup::Apply() {}

} // namespace vela::qrvctl
