#include "message_text.h"

namespace velpick {

std::string Printable(std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    std::string printable;
    printable.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            printable += c;
            continue;
        }
        switch (c) {
            case '\n':
                printable += "\\n";
                break;
            case '\r':
                printable += "\\r";
                break;
            case '\t':
                printable += "\\t";
                break;
            case '\0':
                printable += "\\0";
                break;
            default:
                printable += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xf]};
        }
    }
    return printable;
}

}  // namespace velpick
