#pragma once

#include <cmath>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace velpick {

/// The checks every settings value passes, written once for every place values come from (a
/// scene file's JSON, Python arguments). `Field` supplies the raw reads: AsNumber(),
/// AsBoolean(), AsString() (nothing when the value is not of that kind), IsArray(), Size(),
/// Item(i), Describe() (the value in a message) and Fail(reason), which throws naming the
/// value in its caller's terms.
template <class Field>
class FieldRules {
  public:
    [[noreturn]] void FailType(const std::string& expected) const {
        Self().Fail("expected " + expected + ", got " + Self().Describe());
    }
    /// A finite number.
    double Number() const {
        const std::optional<double> value = Self().AsNumber();
        if (!value)
            FailType("a number");
        if (!std::isfinite(*value))
            FailType("a finite number");
        return *value;
    }
    /// A finite number > 0.
    double PositiveNumber() const {
        const double value = Number();
        if (!(value > 0.0))
            FailType("a number > 0");
        return value;
    }
    /// A finite number ≥ 0.
    double NonNegativeNumber() const {
        const double value = Number();
        if (!(value >= 0.0))
            FailType("a number >= 0");
        return value;
    }
    /// A whole number ≥ 0 (written with or without a fraction part).
    std::size_t WholeNumber(const char* unitName) const {
        // The largest whole number a double holds exactly: beyond it "whole" means nothing.
        constexpr double kMaxExactWhole = 9007199254740992.0;  // 2^53
        const double value = Self().AsNumber().value_or(-1.0);
        if (!(value >= 0.0 && value <= kMaxExactWhole && std::floor(value) == value))
            FailType(std::string("a whole number of ") + unitName + " >= 0");
        return static_cast<std::size_t>(value);
    }
    bool Boolean() const {
        const std::optional<bool> value = Self().AsBoolean();
        if (!value)
            FailType("true or false");
        return *value;
    }
    std::string String() const {
        std::optional<std::string> value = Self().AsString();
        if (!value)
            FailType("a string");
        return std::move(*value);
    }
    /// Requires an array of at least `minSize` elements; returns its size.
    std::size_t ArraySize(std::size_t minSize, const char* elementName) const {
        if (!Self().IsArray())
            FailType("an array");
        const std::size_t size = Self().Size();
        if (size < minSize)
            Self().Fail("expected at least " + std::to_string(minSize) + " " + elementName +
                        ", got " + std::to_string(size));
        return size;
    }
    /// An array of exactly `count` finite numbers.
    std::vector<double> Numbers(std::size_t count) const {
        const std::string expected = std::to_string(count) + " numbers";
        if (!Self().IsArray())
            FailType(expected);
        if (Self().Size() != count)
            Self().Fail("expected " + expected + ", got " + std::to_string(Self().Size()));
        std::vector<double> numbers;
        for (std::size_t i = 0; i < count; ++i)
            numbers.push_back(Self().Item(i).Number());
        return numbers;
    }

  private:
    const Field& Self() const { return static_cast<const Field&>(*this); }
};

}  // namespace velpick
