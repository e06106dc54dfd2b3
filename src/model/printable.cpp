// printable(): escaping control characters for the terminal and the log.
#include "model/printable.h"

#include "model/utf8.h"

namespace tarnwick {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

void appendUnicodeEscape(std::string& out, unsigned code) {
    out += "\\u00";
    out += hexDigits[(code >> 4) & 0xF];
    out += hexDigits[code & 0xF];
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            if (byte == '\\') out += "\\\\";
            else if (byte == '\n') out += "\\n";
            else if (byte == '\r') out += "\\r";
            else if (byte == '\t') out += "\\t";
            else if (byte < 0x20 || byte == 0x7F) appendUnicodeEscape(out, byte);
            else out += static_cast<char>(byte);
            ++i;
            continue;
        }
        size_t length = utf8SequenceLength(text, i);
        if (length == 0) {
            // A stray byte: some terminals read 0x9b alone as a control sequence.
            out += "\\x";
            out += hexDigits[byte >> 4];
            out += hexDigits[byte & 0xF];
            ++i;
            continue;
        }
        // U+0080 to U+009F are the two bytes C2 80 to C2 9F.
        auto second = static_cast<unsigned char>(text[i + 1]);
        if (length == 2 && byte == 0xC2 && second < 0xA0) appendUnicodeEscape(out, second);
        else out.append(text.substr(i, length));
        i += length;
    }
    return out;
}

}  // namespace tarnwick
