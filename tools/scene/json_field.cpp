#include "json_field.h"

#include <algorithm>

#include "message_text.h"
#include "scene_error.h"

namespace velpick {

JsonField::JsonField(const nlohmann::json& value, std::string path, const std::string& source)
    : m_value(value), m_path(std::move(path)), m_source(source) {}

void JsonField::Fail(const std::string& reason) const {
    throw SceneError(m_source + ": " + (m_path.empty() ? "" : m_path + ": ") + reason);
}

std::string JsonField::Describe() const {
    if (m_value.is_number())
        return m_value.dump();
    if (m_value.is_string())
        return "the string " + m_value.dump();
    const std::string type = m_value.type_name();
    return (type == "array" || type == "object" ? "an " : "a ") + type;
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

JsonField JsonField::Item(std::size_t index) const {
    return JsonField(m_value.at(index), m_path + "[" + std::to_string(index) + "]", m_source);
}

std::optional<double> JsonField::AsNumber() const {
    if (!m_value.is_number())
        return std::nullopt;
    return m_value.get<double>();
}

std::optional<bool> JsonField::AsBoolean() const {
    if (!m_value.is_boolean())
        return std::nullopt;
    return m_value.get<bool>();
}

std::optional<std::string> JsonField::AsString() const {
    if (!m_value.is_string())
        return std::nullopt;
    return m_value.get<std::string>();
}

}  // namespace velpick
