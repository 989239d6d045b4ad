#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vela::sim {

enum class PrinterModel { qrv210, qrv410 };

// USB product identifier of the model: 210 -> 0x0024, 410 -> 0x0025.
inline uint16_t ProductId(PrinterModel model) {
    return model == PrinterModel::qrv210 ? 0x0024 : 0x0025;
}
// "210" or "410", as the virtual printer entry spells the model.
inline const char* ModelNumber(PrinterModel model) {
    return model == PrinterModel::qrv210 ? "210" : "410";
}
inline std::optional<PrinterModel> ParseModel(const std::string& text) {
    if (text == "210") {
        return PrinterModel::qrv210;
    }
    if (text == "410") {
        return PrinterModel::qrv410;
    }
    return std::nullopt;
}

} // namespace vela::sim
