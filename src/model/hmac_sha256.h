// SHA-256 and HMAC-SHA-256, for signing what Tarnwick writes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnwick {

using Digest256 = std::array<std::uint8_t, 32>;

// The SHA-256 digest of the bytes.
Digest256 sha256(std::string_view bytes);

// HMAC-SHA-256 of the message under the key, as RFC 2104 builds it.
Digest256 hmacSha256(std::string_view key, std::string_view message);

// Lower-case hexadecimal, two digits a byte.
std::string hexText(const Digest256& digest);

// Whether the two texts are equal, taking as long for every text of the same
// length, so that how long a check takes tells nothing of a secret.
bool equalInConstantTime(std::string_view a, std::string_view b);

}  // namespace tarnwick
