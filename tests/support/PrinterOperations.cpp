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
        // Two entries, the one looked for not the last: a listing that loses its last comma
        // silently loses its last entry (the text has no checksum).
        printer.WriteFile(kGetSource, TestBytes(kFileSize, 2));
        printer.WriteFile(kImages + "/zz.bin", TestBytes(kFileSize, 4));
        break;
    case Kind::update:
        // A failed update may leave its package on the printer (the copy is not undone), and a
        // second put of the same name is refused as a duplicate; each round uses its own name.
        ++m_updateRound;
        m_hostBytes = TestBytes(kFileSize, 3);
        WriteHostFile(m_dir.File("pkg" + std::to_string(m_updateRound) + ".bin"), m_hostBytes);
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
    case Kind::update: {
        const std::wstring package = m_dir.WFile("pkg" + std::to_string(m_updateRound) + ".bin");
        ThrowOnResult(m_facade->ApplyUpdate(package.c_str()));
        break;
    }
    }
}

void PrinterOperations::CheckAfterFailure(Kind kind) {
    vela::sim::SimPrinter& printer = m_printer.Printer();
    switch (kind) {
    case Kind::status:
    case Kind::listing:
        break;
    case Kind::put: {
        EXPECT_EQ(ReadHostFile(m_dir.File("put.bin")), m_hostBytes) << "a failed put changed its host file";
        const auto stored = printer.ReadFile(kPutTarget);
        EXPECT_TRUE(!stored || *stored == m_hostBytes) << "the printer holds part of a put";
        break;
    }
    case Kind::get:
        EXPECT_EQ(ReadHostFile(m_dir.File("got.bin")), m_hostBytes) << "a failed get changed the host file";
        break;
    case Kind::update: {
        const std::string name = "pkg" + std::to_string(m_updateRound) + ".bin";
        EXPECT_EQ(ReadHostFile(m_dir.File(name)), m_hostBytes) << "a failed update changed its package";
        const auto stored = printer.ReadFile(kUpdates + "/" + name);
        EXPECT_TRUE(!stored || *stored == m_hostBytes) << "the printer holds part of a package";
        break;
    }
    }
    // Whatever failed, nothing but the files the test made lies in the host folder: no temporary
    // file of a get was left behind.
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
    case Kind::update: {
        // The package was removed again once applied.
        const std::string name = "pkg" + std::to_string(m_updateRound) + ".bin";
        EXPECT_FALSE(printer.ReadFile(kUpdates + "/" + name).has_value());
        break;
    }
    default:
        break;
    }
}

} // namespace vela::test
