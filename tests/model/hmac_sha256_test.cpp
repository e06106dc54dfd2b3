// SHA-256 and HMAC-SHA-256 against the published test vectors.
#include "model/hmac_sha256.h"

#include <gtest/gtest.h>

#include <string>

namespace tarnwick {
namespace {

std::string hex(std::string_view bytes) { return hexText(sha256(bytes)); }

TEST(Sha256Test, MatchesThePublishedVectors) {
    EXPECT_EQ(hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(hex(std::string(1000000, 'a')), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256Test, LengthsAroundTheBlockEdgeDiffer) {
    // 55, 56 and 64 bytes take the padding into one or two blocks.
    EXPECT_EQ(hex(std::string(55, 'a')), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
    EXPECT_EQ(hex(std::string(56, 'a')), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
    EXPECT_EQ(hex(std::string(64, 'a')), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
}

TEST(HmacSha256Test, MatchesTheRfc4231Vectors) {
    EXPECT_EQ(hexText(hmacSha256(std::string(20, '\x0b'), "Hi There")),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hexText(hmacSha256("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(hexText(hmacSha256(std::string(20, '\xaa'), std::string(50, '\xdd'))),
              "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
    // A key longer than a block.
    EXPECT_EQ(hexText(hmacSha256(std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First")),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

TEST(HmacSha256Test, ConstantTimeComparisonIsEquality) {
    EXPECT_TRUE(equalInConstantTime("abc", "abc"));
    EXPECT_TRUE(equalInConstantTime("", ""));
    EXPECT_FALSE(equalInConstantTime("abc", "abd"));
    EXPECT_FALSE(equalInConstantTime("abc", "ab"));
}

}  // namespace
}  // namespace tarnwick
