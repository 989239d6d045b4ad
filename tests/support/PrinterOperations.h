#pragma once

#include "kom/connection/NativeQRVDevice.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vela::test {

// The operations the fault tests break, with the state each needs and the checks of what a run
// may leave behind. Small files keep the exchanges short enough to cut after every byte.
class PrinterOperations {
public:
    enum class Kind { status, put, get, listing, update };
    static const std::vector<Kind>& All();
    static const char* Name(Kind kind);

    explicit PrinterOperations(SimulatedPrinter& printer);
    ~PrinterOperations();

    void Prepare(Kind kind);
    // Throws the library's exception on failure, QRVException "result <n>" for a nonzero result.
    void Run(Kind kind);
    // After a failed run: the host file as before, no temporary beside it, the printer file whole
    // or absent.
    void CheckAfterFailure(Kind kind);
    void CheckAfterSuccess(Kind kind);

private:
    SimulatedPrinter& m_printer;
    TempDir m_dir;
    std::unique_ptr<vela::kom::NativeQRVDevice> m_facade;
    std::vector<uint8_t> m_hostBytes;    // the host file's contents before the operation
    std::vector<uint8_t> m_printerBytes; // the printer file's contents (get)
    uint32_t m_updateRound = 0;          // a fresh package name per update (see Prepare)
};

} // namespace vela::test
