#include <algorithm>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <crc32_utils.h>

namespace {

uint32_t crc_of(std::string_view text)
{
    const Crc32Utils* crc32 = Crc32Utils::getInstance();
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    return crc32->crc32_signoff(crc32->calculate_crc32(crc32->crc32_init(), bytes, text.size()));
}

TEST(Crc32Utils, MatchesThePublishedCheckValue)
{
    EXPECT_EQ(crc_of("123456789"), 0xCBF43926u);
}

TEST(Crc32Utils, MatchesKnownValuesOfOtherTexts)
{
    EXPECT_EQ(crc_of(""), 0x00000000u);
    EXPECT_EQ(crc_of("a"), 0xE8B7BE43u);
    EXPECT_EQ(crc_of("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(crc_of(std::string(32, '\0')), 0x190A55ADu);
    EXPECT_EQ(crc_of(std::string(32, '\xFF')), 0xFF6CAB0Bu);
}

TEST(Crc32Utils, IsTheSameObjectEachTime)
{
    ASSERT_NE(Crc32Utils::getInstance(), nullptr);
    EXPECT_EQ(Crc32Utils::getInstance(), Crc32Utils::getInstance());
}

TEST(Crc32Utils, NoBytesLeaveTheRunningValueUnchanged)
{
    EXPECT_EQ(Crc32Utils::getInstance()->calculate_crc32(0x12345678, nullptr, 0), 0x12345678u);
}

TEST(Crc32Utils, PiecesAddUpToTheValueOfTheWhole)
{
    const Crc32Utils* crc32 = Crc32Utils::getInstance();
    const std::string_view text = "123456789";
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        uint32_t crc = crc32->calculate_crc32(crc32->crc32_init(), bytes, cut);
        crc = crc32->calculate_crc32(crc, bytes + cut, text.size() - cut);
        EXPECT_EQ(crc32->crc32_signoff(crc), 0xCBF43926u) << "cut at " << cut;
    }
}

TEST(Crc32Utils, EveryFlippedBitOfABlobChangesTheValue)
{
    std::string blob(1020, '\0');
    std::mt19937 random(1);
    std::generate(blob.begin(), blob.end(), [&] { return static_cast<char>(random()); });
    const uint32_t sound = crc_of(blob);
    for (size_t bit = 0; bit < blob.size() * 8; ++bit) {
        blob[bit / 8] = static_cast<char>(blob[bit / 8] ^ (1 << bit % 8));
        EXPECT_NE(crc_of(blob), sound) << "bit " << bit;
        blob[bit / 8] = static_cast<char>(blob[bit / 8] ^ (1 << bit % 8));
    }
}

TEST(Crc32Utils, AgreesWithTheDivisionBitByBit)
{
    std::mt19937 random(2);
    for (int round = 0; round < 200; ++round) {
        std::string text(random() % 64, '\0');
        std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
        uint32_t remainder = UINT32_MAX;
        for (const char c : text) {
            remainder ^= static_cast<uint8_t>(c);
            for (int bit = 0; bit < 8; ++bit) {
                remainder = (remainder & 1) != 0 ? (remainder >> 1) ^ 0xEDB88320u : remainder >> 1;
            }
        }
        EXPECT_EQ(crc_of(text), ~remainder);
    }
}

} // namespace
