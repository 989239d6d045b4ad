#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace vela::common {

enum class LogLevel { error = 0, warning = 1, info = 2 };

// One formatting argument, captured by value so that a format never reads memory it was not
// given: "%s" takes wide or narrow (UTF-8) text, "%d %i %u %x %X %c" take integers; a mismatch
// prints the value as best it can instead of invoking undefined behaviour.
class FormatArg {
public:
    enum class Kind { integer, unsignedInteger, text };

    template <class T, std::enable_if_t<std::is_integral_v<T> && std::is_signed_v<T>, int> = 0>
    FormatArg(T v) : m_kind(Kind::integer), m_signed(static_cast<int64_t>(v)) {}
    template <
        class T,
        std::enable_if_t<std::is_integral_v<T> && !std::is_signed_v<T> && !std::is_same_v<T, bool>, int> = 0>
    FormatArg(T v) : m_kind(Kind::unsignedInteger), m_unsigned(static_cast<uint64_t>(v)) {}
    FormatArg(bool v) : m_kind(Kind::integer), m_signed(v ? 1 : 0) {}
    template <class E, std::enable_if_t<std::is_enum_v<E>, int> = 0>
    FormatArg(E v) : FormatArg(static_cast<std::underlying_type_t<E>>(v)) {}
    FormatArg(const std::wstring& s) : m_kind(Kind::text), m_text(s) {}
    FormatArg(const wchar_t* s) : m_kind(Kind::text), m_text(s ? s : L"(null)") {}
    FormatArg(const std::string& s);
    FormatArg(const char* s);
    FormatArg(const void* p);

    Kind GetKind() const { return m_kind; }
    int64_t Signed() const {
        return m_kind == Kind::unsignedInteger ? static_cast<int64_t>(m_unsigned) : m_signed;
    }
    uint64_t Unsigned() const {
        return m_kind == Kind::integer ? static_cast<uint64_t>(m_signed) : m_unsigned;
    }
    const std::wstring& Text() const { return m_text; }

private:
    Kind m_kind;
    int64_t m_signed = 0;
    uint64_t m_unsigned = 0;
    std::wstring m_text;
};

// printf-style formatting over captured arguments. Supports flags "-0+ #", width, precision,
// length modifiers (ignored) and the conversions s d i u x X c p %. Missing arguments print as
// nothing; surplus arguments are ignored.
std::wstring FormatText(const std::wstring& format, const std::vector<FormatArg>& args);

template <class... Args> std::wstring Format(const std::wstring& format, const Args&... args) {
    return FormatText(format, std::vector<FormatArg>{FormatArg(args)...});
}

// The library's log. Every call may come from any thread (the status monitor thread logs too).
// A text passed without arguments reaches the sink exactly as it stands ("%" included).
//
// The default sink writes errors and warnings to standard error. Environment variables, read
// once at first use:
//   QRV_LOG_LEVEL = off | error | warning | info   (default: warning)
//   QRV_LOG_FILE  = path of a file that receives the lines (appended) instead of standard error
// A host installs its own sink with SetSink; the level threshold applies to every sink.
class Log {
public:
    using Sink = std::function<void(LogLevel level, const std::wstring& line)>;

    static void LogError(const std::wstring& text) { Write(LogLevel::error, text); }
    static void LogWarning(const std::wstring& text) { Write(LogLevel::warning, text); }
    static void LogInfo(const std::wstring& text) { Write(LogLevel::info, text); }
    // Every transaction logs its origin at info level, which is off by default: a literal is
    // only turned into a string when the line will be written.
    static void LogInfo(const wchar_t* text) {
        if (Enabled(LogLevel::info)) {
            Write(LogLevel::info, text);
        }
    }

    template <class A, class... Args>
    static void LogError(const std::wstring& format, const A& a, const Args&... args) {
        if (Enabled(LogLevel::error)) {
            Write(LogLevel::error, Format(format, a, args...));
        }
    }
    template <class A, class... Args>
    static void LogWarning(const std::wstring& format, const A& a, const Args&... args) {
        if (Enabled(LogLevel::warning)) {
            Write(LogLevel::warning, Format(format, a, args...));
        }
    }
    template <class A, class... Args>
    static void LogInfo(const std::wstring& format, const A& a, const Args&... args) {
        if (Enabled(LogLevel::info)) {
            Write(LogLevel::info, Format(format, a, args...));
        }
    }

    // Replaces the sink (an empty one restores the default); returns the previous sink.
    static Sink SetSink(Sink sink);
    // Lines at or below this level are delivered; -1 turns logging off.
    static void SetLevel(int level);
    static int GetLevel();
    static bool Enabled(LogLevel level) { return static_cast<int>(level) <= GetLevel(); }

    static void Write(LogLevel level, const std::wstring& line);
};

const wchar_t* LogLevelName(LogLevel level);

} // namespace vela::common
