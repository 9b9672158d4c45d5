#pragma once

#include <stdexcept>

namespace velpick::detail {

/// A reader's reason for rejecting its input; ImportMesh prefixes it with the file name, the
/// Python module with the argument's name.
class ImportFailure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace velpick::detail
