// The options: tables, bits and text.
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "flash_params_bench.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

TEST_F(FlashParams, AnOptionTextThatIsTooLongIsCut)
{
    table.assign(std::begin(optBenchtop_Tbl), std::end(optBenchtop_Tbl));
    settings->options = 0xfffe;
    set_flash_params();
    EXPECT_EQ(row(10), row_of('O', "20G,MOD,PLS,FS,LP,EMU,PAT,UFS,F"));
    EXPECT_STREQ(option_text(0xfffe).c_str(), "20G,MOD,PLS,FS,LP,EMU,PAT,UFS,FIL,ULN,EPR,ELP");
}

TEST_F(FlashParams, TheOptionTextEndsBeforeItsLengthDoes)
{
    const std::string text = option_text(0x081e);
    EXPECT_EQ(text, std::string("20G,MOD,BAT") + '\0');
    EXPECT_STREQ(text.c_str(), "20G,MOD,BAT");
}

TEST_F(FlashParams, TheOptionTextOfEveryFrequencyCode)
{
    const std::string expected[16] = {"",   "", "", "3G", "",    "",    "6G",  "",
                                      "8G", "", "", "",   "12G", "14G", "20G", "40G"};
    for (uint16_t code = 0; code < 16; ++code) {
        EXPECT_STREQ(option_text(code).c_str(), expected[code].c_str()) << code;
        EXPECT_EQ(option_text(code).size(), expected[code].empty() ? 0 : expected[code].size() + 1) << code;
    }
    EXPECT_STREQ(option_text(14 | 0x10).c_str(), "20G,MOD");
    EXPECT_STREQ(option_text(9 | 0x10).c_str(), "MOD") << "options of an unknown frequency";
}

TEST_F(FlashParams, TheOptionTextOfEachBitOfEachPlatform)
{
    const struct {
        const optEntry_t* table;
        std::vector<std::string> words; // of bits 4 to 15
    } platforms[] = {
        {optPortable_Tbl, {"MOD", "PLS", "", "LP", "EMU", "PAT", "UFS", "BAT", "", "", "", ""}},
        {optBenchtop_Tbl, {"MOD", "PLS", "FS", "LP", "EMU", "PAT", "UFS", "FIL", "ULN", "", "EPR", "ELP"}},
        {optKsr7000_Tbl, {"MOD", "PLS", "FS", "LP", "BAT", "PAT", "UFS", "", "", "", "", ""}},
    };
    for (const auto& platform : platforms) {
        table.assign(platform.table, platform.table + kOptionRows);
        for (unsigned bit = 4; bit < 16; ++bit) {
            EXPECT_STREQ(option_text(static_cast<uint16_t>(1U << bit)).c_str(),
                         platform.words[bit - 4].c_str())
                << bit;
        }
    }
}

TEST_F(FlashParams, ATablesRowsAreFactoryRows)
{
    const struct {
        const optEntry_t* table;
        unsigned used;     // bits with an option
        unsigned defaults; // of these, set by the factory
    } platforms[] = {{optPortable_Tbl, 0x0fb0, 0x0810},
                     {optBenchtop_Tbl, 0xdff0, 0x0090},
                     {optKsr7000_Tbl, 0x07f0, 0x0110}};
    for (const auto& platform : platforms) {
        const optEntry_t& frequency = platform.table[0];
        EXPECT_EQ(frequency.bitStart, 0);
        EXPECT_EQ(frequency.bitNum, 4);
        EXPECT_EQ(frequency.modify, 1);
        EXPECT_EQ(frequency.defaults, 8);
        EXPECT_STREQ(frequency.symbol, "");
        for (unsigned i = 1; i < kOptionRows; ++i) {
            const optEntry_t& entry = platform.table[i];
            const unsigned bit = i <= 12 ? i + 3 : 0;
            const bool used = (platform.used & ~0xfU) >> bit & 1U && i <= 12;
            EXPECT_EQ(entry.bitStart, bit) << i;
            EXPECT_EQ(entry.bitNum, used ? 1 : 0) << i;
            EXPECT_EQ(entry.modify, used ? 1 : 0) << i;
            EXPECT_EQ(entry.defaults, i <= 12 ? platform.defaults >> bit & 1U : 0) << i;
            EXPECT_EQ(entry.symbol[0] != '\0', used) << i;
        }
    }
    EXPECT_EQ(sizeof optPortable_Tbl, 128u);
    EXPECT_EQ(sizeof optBenchtop_Tbl, 128u);
    EXPECT_EQ(sizeof optKsr7000_Tbl, 128u);
}

TEST_F(FlashParams, UpdatingATableStoresTheCurrentValuesAsItsDefaults)
{
    std::vector<optEntry_t> odd{
        {0, 4, 1, 9, ""},   {4, 0, 1, 9, "A"},   {4, 1, 1, 9, "B"}, {6, 3, 0, 9, ""},  {8, 8, 0, 9, "C"},
        {0, 16, 1, 9, "D"}, {0, 200, 1, 9, "E"}, {15, 1, 1, 9, ""}, {16, 1, 1, 9, ""}, {255, 255, 1, 9, ""}};
    (*peer)->updateOptTable(odd.data(), odd.size(), 0xa5d6);
    const unsigned expected[] = {6, 0, 1, 7, 0xa5, 0xd6, 0xd6, 1, 0, 0};
    for (size_t i = 0; i < odd.size(); ++i) {
        EXPECT_EQ(odd[i].defaults, expected[i]) << i;
    }
    EXPECT_EQ(odd[3].bitNum, 3);
    EXPECT_EQ(odd[3].modify, 0);
    EXPECT_STREQ(odd[4].symbol, "C");
}

TEST_F(FlashParams, TheOptionTextUpdatesTheTable)
{
    option_text(0x0010);
    EXPECT_EQ(table[0].defaults, 0);
    EXPECT_EQ(table[1].defaults, 1);
    EXPECT_EQ(table[8].defaults, 0);
}

TEST_F(FlashParams, WithoutATableTheOptionTextIsEmpty)
{
    EXPECT_EQ((*peer)->optToString(nullptr, kOptionRows, 0xffff), "");
    EXPECT_EQ((*peer)->optToString(table.data(), 0, 0xffff), "");
    (*peer)->updateOptTable(nullptr, kOptionRows, 0xffff);
    (*peer)->updateOptTable(table.data(), 0, 0);
    EXPECT_EQ(table[0].defaults, 8);
}

TEST_F(FlashParams, AFrequencyCodeBeyondTheTableHasNoText)
{
    table[0].bitNum = 8;
    EXPECT_EQ(option_text(0x00e0), std::string("PLS,LP") + '\0');
}

TEST_F(FlashParams, AWordInTheFrequencyRowIsNoOption)
{
    std::strcpy(table[0].symbol, "FRQ");
    EXPECT_STREQ(option_text(0x001e).c_str(), "20G,MOD");
}

TEST_F(FlashParams, AWordWithoutTerminatorEndsWithItsField)
{
    std::memcpy(table[1].symbol, "WXYZ", 4);
    EXPECT_STREQ(option_text(0x0010).c_str(), "WXYZ");
}

TEST_F(FlashParams, CodesOfFrequencies)
{
    const std::pair<int, uint8_t> rows[] = {{3, 3},   {6, 6}, {8, 8}, {12, 12}, {14, 13}, {20, 14},
                                            {40, 15}, {7, 0}, {0, 0}, {-1, 0},  {41, 0}};
    for (const auto& [freq, code] : rows) {
        EXPECT_EQ((*peer)->Freq2Mask(freq), code) << freq;
    }
}

TEST_F(FlashParams, ThePortableReadsItsOptionsFromTheLowestBitUp)
{
    uOptions_portable_t options{};
    const auto alone = [&](auto set) {
        options.all = 0;
        set();
        return options.all;
    };
    EXPECT_EQ(alone([&] { options.frequencyOption = 0xf; }), 0x000f);
    EXPECT_EQ(alone([&] { options.modulationPackage = 1; }), 0x0010);
    EXPECT_EQ(alone([&] { options.pulseGenerator = 1; }), 0x0020);
    EXPECT_EQ(alone([&] { options.reserved = 1; }), 0x0040);
    EXPECT_EQ(alone([&] { options.lowPower = 1; }), 0x0080);
    EXPECT_EQ(alone([&] { options.emulatorPack = 1; }), 0x0100);
    EXPECT_EQ(alone([&] { options.pattern = 1; }), 0x0200);
    EXPECT_EQ(alone([&] { options.ultraSwitch = 1; }), 0x0400);
    EXPECT_EQ(alone([&] { options.bat = 1; }), 0x0800);
    EXPECT_EQ(alone([&] { options.reserved2 = 0xf; }), 0xf000);
}

TEST_F(FlashParams, TheThirdPlatformReadsItsOptionsFromTheLowestBitUp)
{
    uOptions_ksr7000_t options{};
    const auto alone = [&](auto set) {
        options.all = 0;
        set();
        return options.all;
    };
    EXPECT_EQ(alone([&] { options.frequencyOption = 0xf; }), 0x000f);
    EXPECT_EQ(alone([&] { options.modulationPackage = 1; }), 0x0010);
    EXPECT_EQ(alone([&] { options.pulseGenerator = 1; }), 0x0020);
    EXPECT_EQ(alone([&] { options.fastSwitch = 1; }), 0x0040);
    EXPECT_EQ(alone([&] { options.lowPower = 1; }), 0x0080);
    EXPECT_EQ(alone([&] { options.bat = 1; }), 0x0100);
    EXPECT_EQ(alone([&] { options.pattern = 1; }), 0x0200);
    EXPECT_EQ(alone([&] { options.ultraSwitch = 1; }), 0x0400);
    EXPECT_EQ(alone([&] { options.reserved = 0xf; }), 0x7800);
}

} // namespace
