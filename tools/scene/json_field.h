#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace velpick {

/// A JSON value together with where it sits in its file ("meshes[0].placement"), so that every
/// complaint about it names the file and the field. Each accessor checks the value's type and
/// range and throws SceneError("<file>: <field>: <reason>") when it does not fit. Keys and
/// strings from the file are echoed with their control characters escaped (Printable), so a
/// message stays on one line.
class JsonField {
  public:
    JsonField(const nlohmann::json& value, std::string path, const std::string& source);

    const std::string& Path() const { return m_path; }
    [[noreturn]] void Fail(const std::string& reason) const;

    /// Requires an object whose member names are all in `known`.
    void ExpectObject(std::initializer_list<const char*> known) const;
    bool Has(const char* name) const;
    /// The member `name`; fails naming it when it is missing.
    JsonField Member(const char* name) const;

    bool IsString() const { return m_value.is_string(); }
    /// Requires an array of at least `minSize` elements; returns its size.
    std::size_t ArraySize(std::size_t minSize, const char* elementName) const;
    JsonField Item(std::size_t index) const;

    /// A finite number.
    double Number() const;
    /// A finite number > 0.
    double PositiveNumber() const;
    /// A finite number ≥ 0.
    double NonNegativeNumber() const;
    /// A whole number ≥ 0 (written with or without a fraction part).
    std::size_t WholeNumber(const char* unitName) const;
    bool Boolean() const;
    std::string String() const;
    /// An array of exactly `count` finite numbers.
    std::vector<double> Numbers(std::size_t count) const;

  private:
    [[noreturn]] void FailType(const char* expected) const;
    std::string ChildPath(const std::string& name) const;

    const nlohmann::json& m_value;
    std::string m_path;
    const std::string& m_source;
};

}  // namespace velpick
