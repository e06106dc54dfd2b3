// UTF-8 validity checks.
#include "model/utf8.h"

#include <cstdint>
#include <cstring>

namespace tarnwick {

size_t utf8SequenceLength(std::string_view s, size_t i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = byte(i);
    size_t length;
    unsigned min;
    unsigned cp;
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) length = 2, cp = c & 0x1Fu, min = 0x80;
    else if (c >= 0xE0 && c <= 0xEF) length = 3, cp = c & 0x0Fu, min = 0x800;
    else if (c >= 0xF0 && c <= 0xF4) length = 4, cp = c & 0x07u, min = 0x10000;
    else return 0;
    if (i + length > s.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (byte(i + k) & 0x3Fu);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return length;
}

bool isValidUtf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        // Runs of ASCII, which most text is, eight bytes at a time.
        std::uint64_t word = 0;
        while (i + sizeof word <= s.size()) {
            std::memcpy(&word, s.data() + i, sizeof word);
            if (word & 0x8080808080808080ULL) break;
            i += sizeof word;
        }
        if (i == s.size()) break;
        if (static_cast<unsigned char>(s[i]) < 0x80) {
            ++i;
            continue;
        }
        size_t n = utf8SequenceLength(s, i);
        if (n == 0) return false;
        i += n;
    }
    return true;
}

std::string validUtf8(std::string_view s) {
    std::string valid;
    valid.reserve(s.size() + 8);
    for (size_t i = 0; i < s.size();) {
        size_t n = utf8SequenceLength(s, i);
        if (n == 0) {
            valid += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        valid.append(s, i, n);
        i += n;
    }
    return valid;
}

}  // namespace tarnwick
