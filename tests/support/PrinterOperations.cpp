#include "support/PrinterOperations.h"

#include "common/StringConverter.h"
#include "kom/QRVException.h"
#include "sim/VirtualFileSystem.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vela::test {

namespace {

using vela::common::StringConverter;
using vela::sim::VirtualFileSystem;

const std::string kImages = VirtualFileSystem::kImageFolder;
const std::string kUpdates = VirtualFileSystem::kUpdateFolder;
const std::string kPutTarget = kImages + "/put.bin";
const std::string kGetSource = kImages + "/get.bin";
constexpr size_t kFileSize = 10; // no message is then a multiple of 512 bytes (no pad byte)

std::wstring Wide(const std::string& text) {
    return StringConverter::FromUtf8(text);
}

// A failed update may leave its package behind, and a name is put only once: one per round.
std::string Package(uint32_t round) {
    return "pkg" + std::to_string(round) + ".bin";
}

void ThrowOnResult(int32_t result) {
    if (result != 0) {
        throw vela::kom::QRVException(L"result " + std::to_wstring(result), L"PrinterOperations");
    }
}

} // namespace

const std::vector<PrinterOperations::Kind>& PrinterOperations::All() {
    static const std::vector<Kind> all{Kind::status, Kind::put, Kind::get, Kind::listing, Kind::update};
    return all;
}

const char* PrinterOperations::Name(Kind kind) {
    static const char* const names[] = {"status", "put", "get", "listing", "update"};
    return names[static_cast<size_t>(kind)];
}

PrinterOperations::PrinterOperations(SimulatedPrinter& printer) : m_printer(printer) {}
PrinterOperations::~PrinterOperations() = default;

void PrinterOperations::Prepare(Kind kind) {
    vela::sim::SimPrinter& printer = m_printer.Printer();
    switch (kind) {
    case Kind::status:
        break;
    case Kind::put:
        m_hostBytes = TestBytes(kFileSize, 1);
        WriteHostFile(m_dir.File("put.bin"), m_hostBytes);
        printer.RemoveFile(kPutTarget);
        break;
    case Kind::get:
        m_printerBytes = TestBytes(kFileSize, 2);
        printer.WriteFile(kGetSource, m_printerBytes);
        m_hostBytes = {'e', 'a', 'r', 'l', 'i', 'e', 'r'};
        WriteHostFile(m_dir.File("got.bin"), m_hostBytes);
        break;
    case Kind::listing:
        // The one looked for not last: a listing that loses its last comma loses its last entry.
        printer.WriteFile(kGetSource, TestBytes(kFileSize, 2));
        printer.WriteFile(kImages + "/zz.bin", TestBytes(kFileSize, 4));
        break;
    case Kind::update:
        ++m_updateRound;
        m_hostBytes = TestBytes(kFileSize, 3);
        WriteHostFile(m_dir.File(Package(m_updateRound)), m_hostBytes);
        if (!m_facade) {
            m_facade = std::make_unique<vela::kom::NativeQRVDevice>(0);
            m_facade->SetPrinterName(m_printer.Name());
        }
        break;
    }
}

void PrinterOperations::Run(Kind kind) {
    vela::kom::QRVDevice& device = m_printer.Device();
    switch (kind) {
    case Kind::status:
        (void)device.GetStatus();
        break;
    case Kind::put:
        ThrowOnResult(device.PutFile(Wide(kPutTarget), m_dir.WFile("put.bin")));
        break;
    case Kind::get:
        ThrowOnResult(device.GetFile(Wide(kGetSource), m_dir.WFile("got.bin")));
        break;
    case Kind::listing: {
        const auto entries = device.GetFolderContent(Wide(kImages));
        const bool found = std::any_of(entries.begin(), entries.end(),
                                       [](const auto& entry) { return entry->Name() == L"get.bin"; });
        if (!found) {
            throw vela::kom::QRVException(L"listing without get.bin", L"PrinterOperations");
        }
        break;
    }
    case Kind::update:
        ThrowOnResult(m_facade->ApplyUpdate(m_dir.WFile(Package(m_updateRound)).c_str()));
        break;
    }
}

void PrinterOperations::CheckAfterFailure(Kind kind) {
    // The host file is as before; a file sent is on the printer whole or not at all.
    const auto expectWholeOrAbsent = [&](const std::string& hostName, const std::string& printerPath) {
        EXPECT_EQ(ReadHostFile(m_dir.File(hostName)), m_hostBytes) << "a failed run changed " << hostName;
        const auto stored = m_printer.Printer().ReadFile(printerPath);
        EXPECT_TRUE(!stored || *stored == m_hostBytes) << "the printer holds part of " << printerPath;
    };
    if (kind == Kind::put) {
        expectWholeOrAbsent("put.bin", kPutTarget);
    } else if (kind == Kind::get) {
        EXPECT_EQ(ReadHostFile(m_dir.File("got.bin")), m_hostBytes) << "a failed get changed the host file";
    } else if (kind == Kind::update) {
        expectWholeOrAbsent(Package(m_updateRound), kUpdates + "/" + Package(m_updateRound));
    }
    // No temporary file of a get was left behind.
    for (const std::string& name : ListDirectory(m_dir.Path())) {
        EXPECT_TRUE(name == "put.bin" || name == "got.bin" || name.rfind("pkg", 0) == 0)
            << "unexpected host file " << name;
    }
}

void PrinterOperations::CheckAfterSuccess(Kind kind) {
    vela::sim::SimPrinter& printer = m_printer.Printer();
    switch (kind) {
    case Kind::put:
        EXPECT_EQ(printer.ReadFile(kPutTarget), std::optional<std::vector<uint8_t>>(m_hostBytes));
        break;
    case Kind::get:
        EXPECT_EQ(ReadHostFile(m_dir.File("got.bin")), m_printerBytes);
        break;
    case Kind::update: // the package was removed again once applied
        EXPECT_FALSE(printer.ReadFile(kUpdates + "/" + Package(m_updateRound)).has_value());
        break;
    default:
        break;
    }
}

} // namespace vela::test
