#pragma once

#include <string>

namespace velpick {

/// The scene file's fields, the pickers and an example, for `velpick --help`. Every default it
/// states is read from the settings it describes.
std::string SceneHelp();

}  // namespace velpick
