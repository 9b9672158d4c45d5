#pragma once

#include <string>
#include <string_view>

namespace velpick {

/// `text` with every control character (bytes below 0x20, and 0x7f; NUL included) written as
/// an escape: \n, \r, \t, \0 or \xNN. Echoing a user's key, name or file name through it keeps
/// a message on one line and shows what was there. Other bytes, UTF-8 included, are kept.
std::string Printable(std::string_view text);

}  // namespace velpick
