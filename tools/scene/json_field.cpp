#include "json_field.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "message_text.h"
#include "scene_error.h"

namespace velpick {

namespace {

// The largest whole number a double holds exactly: beyond it "whole" means nothing.
constexpr double kMaxExactWhole = 9007199254740992.0;  // 2^53

std::string Describe(const nlohmann::json& value) {
    if (value.is_number())
        return value.dump();
    if (value.is_string())
        return "the string " + value.dump();
    const std::string type = value.type_name();
    return (type == "array" || type == "object" ? "an " : "a ") + type;
}

}  // namespace

JsonField::JsonField(const nlohmann::json& value, std::string path, const std::string& source)
    : m_value(value), m_path(std::move(path)), m_source(source) {}

void JsonField::Fail(const std::string& reason) const {
    throw SceneError(m_source + ": " + (m_path.empty() ? "" : m_path + ": ") + reason);
}

void JsonField::FailType(const char* expected) const {
    Fail(std::string("expected ") + expected + ", got " + Describe(m_value));
}

void JsonField::ExpectObject(std::initializer_list<const char*> known) const {
    if (!m_value.is_object())
        FailType("an object");
    for (const auto& member : m_value.items()) {
        const bool isKnown = std::any_of(known.begin(), known.end(),
                                         [&](const char* name) { return member.key() == name; });
        // The whole key, escaped: a key with a NUL or a line break must not shorten into a
        // valid field's name or split the message.
        if (!isKnown)
            JsonField(member.value(), ChildPath(Printable(member.key())), m_source)
                .Fail("unknown field");
    }
}

bool JsonField::Has(const char* name) const {
    return m_value.is_object() && m_value.contains(name);
}

std::string JsonField::ChildPath(const std::string& name) const {
    return m_path.empty() ? name : m_path + "." + name;
}

JsonField JsonField::Member(const char* name) const {
    const std::string path = ChildPath(name);
    if (!Has(name))
        JsonField(m_value, path, m_source).Fail("missing");
    return JsonField(m_value.at(name), path, m_source);
}

std::size_t JsonField::ArraySize(std::size_t minSize, const char* elementName) const {
    if (!m_value.is_array())
        FailType("an array");
    if (m_value.size() < minSize) {
        std::ostringstream reason;
        reason << "expected at least " << minSize << " " << elementName << ", got "
               << m_value.size();
        Fail(reason.str());
    }
    return m_value.size();
}

JsonField JsonField::Item(std::size_t index) const {
    return JsonField(m_value.at(index), m_path + "[" + std::to_string(index) + "]", m_source);
}

double JsonField::Number() const {
    if (!m_value.is_number())
        FailType("a number");
    const double value = m_value.get<double>();
    if (!std::isfinite(value))
        FailType("a finite number");
    return value;
}

double JsonField::PositiveNumber() const {
    const double value = Number();
    if (!(value > 0.0))
        FailType("a number > 0");
    return value;
}

double JsonField::NonNegativeNumber() const {
    const double value = Number();
    if (!(value >= 0.0))
        FailType("a number >= 0");
    return value;
}

std::size_t JsonField::WholeNumber(const char* unitName) const {
    const double value = m_value.is_number() ? m_value.get<double>() : -1.0;
    if (!(value >= 0.0 && value <= kMaxExactWhole && std::floor(value) == value))
        FailType((std::string("a whole number of ") + unitName + " >= 0").c_str());
    return static_cast<std::size_t>(value);
}

bool JsonField::Boolean() const {
    if (!m_value.is_boolean())
        FailType("true or false");
    return m_value.get<bool>();
}

std::string JsonField::String() const {
    if (!m_value.is_string())
        FailType("a string");
    return m_value.get<std::string>();
}

std::vector<double> JsonField::Numbers(std::size_t count) const {
    if (!m_value.is_array() || m_value.size() != count) {
        const std::string expected = std::to_string(count) + " numbers";
        if (!m_value.is_array())
            FailType(expected.c_str());
        Fail("expected " + expected + ", got " + std::to_string(m_value.size()));
    }
    std::vector<double> numbers;
    for (std::size_t i = 0; i < count; ++i)
        numbers.push_back(Item(i).Number());
    return numbers;
}

}  // namespace velpick
