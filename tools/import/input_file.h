#pragma once

#include <filesystem>
#include <fstream>

#include "import_failure.h"

namespace velpick::detail {

/// The file opened for binary reading; throws ImportFailure when it is missing, is a directory
/// or cannot be opened.
inline std::ifstream OpenForReading(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        throw ImportFailure("no such file");
    if (std::filesystem::is_directory(file, error))
        throw ImportFailure("is a directory");
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ImportFailure("cannot open the file for reading");
    return in;
}

}  // namespace velpick::detail
