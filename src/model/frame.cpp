// Frame: parsing the capture scripts' bounds text and formatting the restore scripts' one.
#include "model/frame.h"

#include "model/invariant.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace tarnwick {

namespace {

// Horizontal white space only: a line break inside a piece makes it unreadable.
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }

std::string_view trimBlanks(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

// Plain decimal text: [+-] digits [. digits] [e [+-] digits], at least one digit
// in the mantissa. strtod alone would also take "nan", "inf" and hex floats,
// none of which a script's number-to-text conversion prints.
bool isDecimal(std::string_view s) {
    size_t i = 0, n = s.size();
    auto digits = [&] {
        size_t start = i;
        while (i < n && s[i] >= '0' && s[i] <= '9') ++i;
        return i - start;
    };
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    size_t mantissa = digits();
    if (i < n && s[i] == '.') {
        ++i;
        mantissa += digits();
    }
    if (mantissa == 0) return false;
    if (i < n && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
        if (digits() == 0) return false;
    }
    return i == n;
}

// C-locale decimal text to a finite double, the whole piece consumed.
std::optional<double> parseNumber(std::string_view piece) {
    if (!isDecimal(piece)) return std::nullopt;
    std::string text(piece);
    double value = std::strtod(text.c_str(), nullptr);
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

}  // namespace

std::optional<Frame> Frame::init(std::string_view bounds) {
    std::vector<double> numbers;
    while (!bounds.empty()) {
        size_t cut = bounds.find(';');
        std::string_view piece = bounds.substr(0, cut);
        bounds = cut == std::string_view::npos ? std::string_view{} : bounds.substr(cut + 1);
        if (piece.empty()) continue;
        if (auto n = parseNumber(trimBlanks(piece))) numbers.push_back(*n);
    }
    if (numbers.size() != 4) return std::nullopt;
    double x1 = numbers[0], y1 = numbers[1], x2 = numbers[2], y2 = numbers[3];
    if (!(x1 < x2) || !(y1 < y2)) return std::nullopt;
    Frame frame{x1, y1, x2 - x1, y2 - y1};
    // The difference of two huge finite numbers can still overflow.
    if (!std::isfinite(frame.w) || !std::isfinite(frame.h)) return std::nullopt;
    return frame;
}

namespace {

int64_t truncated(double v, const char* what) {
    // 2^63 is exactly representable; the valid range is the open interval around it.
    constexpr double limit = 9223372036854775808.0;
    if (!std::isfinite(v) || !(v > -limit) || !(v < limit))
        invariantFailed(std::string("frame value out of range for a script: ") + what);
    return static_cast<int64_t>(v);
}

}  // namespace

std::string Frame::appleScriptBounds() const {
    return "{" + std::to_string(truncated(x, "x")) + ", " + std::to_string(truncated(y, "y")) + ", " +
           std::to_string(truncated(x + w, "x + w")) + ", " + std::to_string(truncated(y + h, "y + h")) + "}";
}

bool Frame::placeable() const {
    // Far beyond any arrangement of screens, and far inside every integer type
    // a window system or a script takes coordinates in.
    constexpr double limit = 1'000'000;
    auto within = [](double v, double low, double high) { return std::isfinite(v) && v >= low && v <= high; };
    return within(x, -limit, limit) && within(y, -limit, limit) && within(w, 0, limit) && within(h, 0, limit);
}

}  // namespace tarnwick
