#pragma once

#include <stdexcept>

namespace velpick {

/// A scene file that cannot be used; what() is "<file>: <field>: <reason>".
class SceneError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace velpick
