// SHA-256 after FIPS 180-4, and HMAC over it.
#include "model/hmac_sha256.h"

#include <bit>
#include <cstring>

namespace tarnwick {

namespace {

constexpr std::array<std::uint32_t, 64> roundConstants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

class Sha256 {
public:
    void add(std::string_view bytes) {
        length_ += bytes.size();
        for (char c : bytes) {
            block_[filled_++] = static_cast<std::uint8_t>(c);
            if (filled_ == block_.size()) compress();
        }
    }

    Digest256 finish() {
        std::uint64_t bits = length_ * 8;
        block_[filled_++] = 0x80;
        if (filled_ > 56) {
            while (filled_ < 64) block_[filled_++] = 0;
            compress();
        }
        while (filled_ < 56) block_[filled_++] = 0;
        for (int i = 7; i >= 0; --i) block_[filled_++] = static_cast<std::uint8_t>(bits >> (8 * i));
        compress();
        Digest256 digest{};
        for (size_t i = 0; i < 8; ++i)
            for (size_t j = 0; j < 4; ++j) digest[4 * i + j] = static_cast<std::uint8_t>(state_[i] >> (24 - 8 * j));
        return digest;
    }

private:
    void compress() {
        std::array<std::uint32_t, 64> w{};
        for (size_t i = 0; i < 16; ++i)
            w[i] = std::uint32_t{block_[4 * i]} << 24 | std::uint32_t{block_[4 * i + 1]} << 16 |
                   std::uint32_t{block_[4 * i + 2]} << 8 | std::uint32_t{block_[4 * i + 3]};
        for (size_t i = 16; i < 64; ++i) {
            std::uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
            std::uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
            w[i] = w[i - 16] + s0 + w[i - 7] + s1;
        }
        auto [a, b, c, d, e, f, g, h] = state_;
        for (size_t i = 0; i < 64; ++i) {
            std::uint32_t t1 = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + ((e & f) ^ (~e & g)) +
                               roundConstants[i] + w[i];
            std::uint32_t t2 = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
            h = g, g = f, f = e, e = d + t1, d = c, c = b, b = a, a = t1 + t2;
        }
        std::array<std::uint32_t, 8> add{a, b, c, d, e, f, g, h};
        for (size_t i = 0; i < 8; ++i) state_[i] += add[i];
        filled_ = 0;
    }

    std::array<std::uint32_t, 8> state_{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<std::uint8_t, 64> block_{};
    size_t filled_ = 0;
    std::uint64_t length_ = 0;
};

std::string_view view(const Digest256& digest) {
    return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

}  // namespace

Digest256 sha256(std::string_view bytes) {
    Sha256 hash;
    hash.add(bytes);
    return hash.finish();
}

Digest256 hmacSha256(std::string_view key, std::string_view message) {
    // A key longer than a block is first hashed down, as the construction asks.
    Digest256 hashedKey{};
    if (key.size() > 64) {
        hashedKey = sha256(key);
        key = view(hashedKey);
    }
    std::array<char, 64> inner{}, outer{};
    for (size_t i = 0; i < 64; ++i) {
        char k = i < key.size() ? key[i] : '\0';
        inner[i] = static_cast<char>(k ^ 0x36);
        outer[i] = static_cast<char>(k ^ 0x5c);
    }
    Sha256 first;
    first.add({inner.data(), inner.size()});
    first.add(message);
    Digest256 innerDigest = first.finish();
    Sha256 second;
    second.add({outer.data(), outer.size()});
    second.add(view(innerDigest));
    return second.finish();
}

std::string hexText(const Digest256& digest) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(64);
    for (std::uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

bool equalInConstantTime(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < a.size(); ++i) difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    return difference == 0;
}

}  // namespace tarnwick
