#include "ProcessSetup.h"

#include <malloc.h>

namespace vela::qrvctl {

void ProcessSetup::Apply() {
    // One heap for all threads. A command runs at most a few short-lived threads (the status
    // monitor, the Ctrl+C watcher, a progress ticker) that allocate little; a heap of its own
    // for each would reserve 64 MiB of address space and fault in its first pages, which costs
    // a status command about 6 % of its time.
    ::mallopt(M_ARENA_MAX, 1);
}

} // namespace vela::qrvctl
