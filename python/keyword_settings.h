#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>

#include <pybind11/pybind11.h>

#include "field_rules.h"
#include "pick_settings.h"
#include "setting.h"

namespace velpick::python {

/// A Python value together with the argument it came from ("camera.eye", "region[3]"), read
/// with the same checks as a scene file's values; Fail throws pybind11::value_error
/// "<argument>: <reason>". Use with the GIL held.
class PyField : public FieldRules<PyField> {
  public:
    PyField(pybind11::handle value, std::string path);

    [[noreturn]] void Fail(const std::string& reason) const;
    void ExpectObject(std::initializer_list<const char*> known) const;
    bool Has(const char* name) const;
    PyField Member(const char* name) const;
    bool IsString() const;

    std::optional<double> AsNumber() const;
    std::optional<bool> AsBoolean() const;
    std::optional<std::string> AsString() const;
    bool IsArray() const;
    std::size_t Size() const;
    PyField Item(std::size_t index) const;
    std::string Describe() const;

  private:
    pybind11::object m_value;
    std::string m_path;
};

/// A 4x4 matrix argument as the 16 numbers, row by row, the settings validator reads.
PyField MatrixField(pybind11::handle matrix, const std::string& name);

/// The functions that take pick settings as keyword arguments; each keyword says which.
enum class PickFunction : unsigned { kPick = 1, kPickMeshes = 2, kPickEdges = 4 };

/// The settings a call's keyword arguments give, for ValidatePickSettings and ValidateView:
/// each setting named by its keyword, None meaning left out. `region` is the positional
/// region argument: a polygon, or a brush path when brush_radius is given. Throws TypeError,
/// as Python does, for a keyword `function` does not take.
class KeywordSettings {
  public:
    KeywordSettings(pybind11::handle region, const pybind11::kwargs& keywords,
                    PickFunction function);

    std::optional<PyField> Find(Setting setting) const;
    [[noreturn]] void Fail(Setting setting, const std::string& reason) const;

  private:
    std::optional<PyField> Keyword(Setting setting) const;

    pybind11::object m_region;
    pybind11::dict m_keywords;
    PickFunction m_function;
};

}  // namespace velpick::python
