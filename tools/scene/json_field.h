#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "field_rules.h"

namespace velpick {

/// A JSON value together with where it sits in its file ("meshes[0].placement"), so that every
/// complaint about it names the file and the field: SceneError("<file>: <field>: <reason>").
/// The checks are FieldRules'. Keys and strings from the file are echoed with their control
/// characters escaped (Printable), so a message stays on one line.
class JsonField : public FieldRules<JsonField> {
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

    // The raw reads FieldRules checks.
    std::optional<double> AsNumber() const;
    std::optional<bool> AsBoolean() const;
    std::optional<std::string> AsString() const;
    bool IsArray() const { return m_value.is_array(); }
    std::size_t Size() const { return m_value.size(); }
    JsonField Item(std::size_t index) const;
    std::string Describe() const;

  private:
    std::string ChildPath(const std::string& name) const;

    const nlohmann::json& m_value;
    std::string m_path;
    const std::string& m_source;
};

}  // namespace velpick
