#include "common/Log.h"

#include "common/StringConverter.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

namespace vela::common {

FormatArg::FormatArg(const std::string& s) : m_kind(Kind::text), m_text(StringConverter::FromUtf8(s)) {}
FormatArg::FormatArg(const char* s)
    : m_kind(Kind::text), m_text(s ? StringConverter::FromUtf8(s) : std::wstring(L"(null)")) {}
FormatArg::FormatArg(const void* p)
    : m_kind(Kind::unsignedInteger), m_unsigned(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p))) {}

namespace {

struct Directive {
    bool left = false, zero = false, plus = false, space = false, alternate = false;
    int width = -1, precision = -1;
};

std::wstring Digits(uint64_t value, unsigned base, bool upper) {
    const wchar_t* digits = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
    std::wstring out;
    do {
        out.insert(out.begin(), digits[value % base]);
        value /= base;
    } while (value != 0);
    return out;
}

std::wstring Pad(std::wstring body, const Directive& directive, const std::wstring& prefix, bool numeric) {
    int len = static_cast<int>(body.size() + prefix.size());
    if (directive.width > len) {
        size_t fill = static_cast<size_t>(directive.width - len);
        if (directive.left) {
            return prefix + body + std::wstring(fill, L' ');
        }
        if (directive.zero && numeric && directive.precision < 0) {
            return prefix + std::wstring(fill, L'0') + body;
        }
        return std::wstring(fill, L' ') + prefix + body;
    }
    return prefix + body;
}

std::wstring Convert(wchar_t conv, const Directive& directive, const FormatArg& arg) {
    switch (conv) {
    case L's': {
        std::wstring text;
        if (arg.GetKind() == FormatArg::Kind::text) {
            text = arg.Text();
        } else if (arg.GetKind() == FormatArg::Kind::integer) {
            text = std::to_wstring(arg.Signed());
        } else {
            text = std::to_wstring(arg.Unsigned());
        }
        if (directive.precision >= 0 && static_cast<size_t>(directive.precision) < text.size()) {
            text.resize(static_cast<size_t>(directive.precision));
        }
        return Pad(text, directive, L"", false);
    }
    case L'c':
        if (arg.GetKind() == FormatArg::Kind::text) {
            return Pad(arg.Text().substr(0, 1), directive, L"", false);
        }
        return Pad(std::wstring(1, static_cast<wchar_t>(arg.Unsigned())), directive, L"", false);
    case L'd':
    case L'i': {
        if (arg.GetKind() == FormatArg::Kind::text) {
            return Pad(arg.Text(), directive, L"", false);
        }
        int64_t v = arg.Signed();
        bool negative = arg.GetKind() == FormatArg::Kind::integer && v < 0;
        uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(v) : arg.Unsigned();
        std::wstring body = Digits(magnitude, 10, false);
        if (directive.precision >= 0 && static_cast<int>(body.size()) < directive.precision) {
            body.insert(0, static_cast<size_t>(directive.precision) - body.size(), L'0');
        }
        std::wstring sign = negative ? L"-" : directive.plus ? L"+" : directive.space ? L" " : L"";
        return Pad(body, directive, sign, true);
    }
    case L'u':
    case L'x':
    case L'X':
    case L'o':
    case L'p': {
        if (arg.GetKind() == FormatArg::Kind::text) {
            return Pad(arg.Text(), directive, L"", false);
        }
        // Negative values print as their 32-bit two's complement, as printf does for "%x" of an int.
        uint64_t v = arg.Unsigned();
        if (arg.GetKind() == FormatArg::Kind::integer && arg.Signed() < 0 && arg.Signed() >= INT32_MIN) {
            v &= 0xFFFFFFFFull;
        }
        unsigned base = conv == L'u' ? 10 : conv == L'o' ? 8 : 16;
        std::wstring body = Digits(v, base, conv == L'X');
        if (directive.precision >= 0 && static_cast<int>(body.size()) < directive.precision) {
            body.insert(0, static_cast<size_t>(directive.precision) - body.size(), L'0');
        }
        std::wstring prefix;
        if ((directive.alternate && base == 16 && v != 0) || conv == L'p') {
            prefix = conv == L'X' ? L"0X" : L"0x";
        }
        return Pad(body, directive, prefix, true);
    }
    default:
        return std::wstring();
    }
}

} // namespace

std::wstring FormatText(const std::wstring& format, const std::vector<FormatArg>& args) {
    std::wstring out;
    out.reserve(format.size() + 32);
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        wchar_t c = format[i];
        if (c != L'%') {
            out.push_back(c);
            continue;
        }
        size_t start = i;
        if (++i >= format.size()) {
            out.push_back(L'%');
            break;
        }
        if (format[i] == L'%') {
            out.push_back(L'%');
            continue;
        }
        Directive directive;
        for (; i < format.size(); ++i) {
            wchar_t f = format[i];
            if (f == L'-') {
                directive.left = true;
            } else if (f == L'0') {
                directive.zero = true;
            } else if (f == L'+') {
                directive.plus = true;
            } else if (f == L' ') {
                directive.space = true;
            } else if (f == L'#') {
                directive.alternate = true;
            } else {
                break;
            }
        }
        auto number = [&](int& target) {
            if (i < format.size() && format[i] == L'*') {
                target = next < args.size() ? static_cast<int>(args[next++].Signed()) : 0;
                ++i;
                return;
            }
            int value = -1;
            while (i < format.size() && format[i] >= L'0' && format[i] <= L'9') {
                value = (value < 0 ? 0 : value) * 10 + (format[i] - L'0');
                if (value > 4096) {
                    value = 4096; // a width is never a reason to allocate without bound
                }
                ++i;
            }
            target = value;
        };
        number(directive.width);
        if (i < format.size() && format[i] == L'.') {
            ++i;
            number(directive.precision);
            if (directive.precision < 0) {
                directive.precision = 0;
            }
        }
        while (i < format.size() && std::wcschr(L"hlLqjzt", format[i]) != nullptr && format[i] != 0) {
            ++i;
        }
        if (i >= format.size()) {
            out.append(format, start, std::wstring::npos);
            break;
        }
        wchar_t conv = format[i];
        if (std::wcschr(L"sdiuxXcop", conv) == nullptr || conv == 0) {
            // Unknown conversion: keep the text as written.
            out.append(format, start, i - start + 1);
            continue;
        }
        if (next < args.size()) {
            out += Convert(conv, directive, args[next++]);
        }
    }
    return out;
}

const wchar_t* LogLevelName(LogLevel level) {
    switch (level) {
    case LogLevel::error:
        return L"error";
    case LogLevel::warning:
        return L"warning";
    case LogLevel::info:
        return L"info";
    }
    return L"?";
}

namespace {

int LevelFromEnvironment() {
    const char* v = std::getenv("QRV_LOG_LEVEL");
    if (v == nullptr || *v == 0) {
        return static_cast<int>(LogLevel::warning);
    }
    std::string s(v);
    if (s == "off" || s == "none") {
        return -1;
    }
    if (s == "error") {
        return 0;
    }
    if (s == "info" || s == "information" || s == "debug" || s == "all") {
        return 2;
    }
    return 1;
}

struct LogState {
    std::mutex mutex;
    std::shared_ptr<Log::Sink> sink;
    std::atomic<int> level{LevelFromEnvironment()};
    FILE* file = nullptr;

    LogState() {
        const char* path = std::getenv("QRV_LOG_FILE");
        if (path != nullptr && *path != 0) {
            file = std::fopen(path, "a");
        }
    }
    ~LogState() {
        if (file != nullptr) {
            std::fclose(file);
        }
    }
};

LogState& State() {
    static LogState state; // constructed on first use, from any thread, exactly once
    return state;
}

void DefaultSink(LogState& state, LogLevel level, const std::wstring& line) {
    std::string text =
        "qrv " + StringConverter::ToUtf8(LogLevelName(level)) + ": " + StringConverter::ToUtf8(line) + "\n";
    std::lock_guard<std::mutex> lock(state.mutex);
    FILE* target = state.file != nullptr ? state.file : stderr;
    std::fwrite(text.data(), 1, text.size(), target);
    std::fflush(target);
}

} // namespace

Log::Sink Log::SetSink(Sink sink) {
    LogState& state = State();
    std::shared_ptr<Sink> replacement = sink ? std::make_shared<Sink>(std::move(sink)) : nullptr;
    std::lock_guard<std::mutex> lock(state.mutex);
    std::shared_ptr<Sink> previous = std::move(state.sink);
    state.sink = std::move(replacement);
    return previous ? *previous : Sink();
}

void Log::SetLevel(int level) {
    State().level = level;
}
int Log::GetLevel() {
    return State().level;
}

void Log::Write(LogLevel level, const std::wstring& line) {
    LogState& state = State();
    if (static_cast<int>(level) > state.level) {
        return;
    }
    std::shared_ptr<Sink> sink;
    {
        std::lock_guard<std::mutex> lock(state.mutex);
        sink = state.sink;
    }
    // The host's sink is called without our lock held, so it may log or block as it likes.
    if (sink) {
        (*sink)(level, line);
    } else {
        DefaultSink(state, level, line);
    }
}

} // namespace vela::common
