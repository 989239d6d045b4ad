#pragma once

#include <memory>
#include <string>

namespace vela::common {

// Either Some(text) or None. Copies share one implementation object.
class OptionImpl {
public:
    virtual ~OptionImpl() = default;
    virtual bool HasValue() const = 0;
    virtual std::wstring Value() const = 0; // None: throws InvalidOperationException
};

class SomeImpl : public OptionImpl {
public:
    explicit SomeImpl(std::wstring value) : m_value(std::move(value)) {}
    bool HasValue() const override { return true; }
    std::wstring Value() const override { return m_value; }

private:
    std::wstring m_value;
};

class NoneImpl : public OptionImpl {
public:
    bool HasValue() const override { return false; }
    std::wstring Value() const override; // "Option::None has no value", origin "Option::None"
};

class Option {
public:
    static Option Some(std::wstring value) { return Option(std::make_shared<SomeImpl>(std::move(value))); }
    static Option None() { return Option(std::make_shared<NoneImpl>()); }

    bool HasValue() const { return m_impl->HasValue(); }
    std::wstring Value() const { return m_impl->Value(); }

private:
    explicit Option(std::shared_ptr<OptionImpl> impl) : m_impl(std::move(impl)) {}
    std::shared_ptr<OptionImpl> m_impl;
};

} // namespace vela::common
