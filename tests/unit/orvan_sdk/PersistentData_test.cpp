#include <algorithm>
#include <cstring>
#include <optional>
#include <ostream>
#include <string>

#include <dlfcn.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include <crc32_utils.h>

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

bool g_crc_unavailable = false;

} // namespace

// Overrides the utility library's.
Crc32Utils* Crc32Utils::getInstance()
{
    if (g_crc_unavailable) {
        return nullptr;
    }
    void* const real = dlsym(RTLD_NEXT, "_ZN10Crc32Utils11getInstanceEv");
    return reinterpret_cast<Crc32Utils* (*)()>(real)();
}

namespace {

class Handler : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

EEPROM_DEVICE_SETTINGS sample_settings()
{
    EEPROM_DEVICE_SETTINGS settings;
    std::memset(&settings, 0, sizeof settings);
    settings.options = 0x081e;
    std::strcpy(settings.modelName, "OVX3651P");
    std::strcpy(settings.serialNum, "230042");
    settings.hardwareVersion = 'D';
    std::strcpy(settings.description, "Halde Electronics Ltd.");
    settings.numDevices = 1;
    std::strcpy(settings.hostName, "OVX3651P-230042");
    settings.maxCwFreq = 20'000'000'000;
    settings.minCwPow = -30;
    std::strcpy(settings.scpiPort, "5025");
    settings.vendor_id = 0x168c;
    settings.bootDBConfig = 3;
    return settings;
}

class SettingsBlob : public testing::Test {
protected:
    SettingsBlob()
    {
        OutputCapture out(STDOUT_FILENO);
        peer.emplace(handler, g_portableModelsTable);
    }
    void TearDown() override { g_crc_unavailable = false; }

    Blob verified() const { return peer->build(&settings, 1, 57); }
    Blob legacy() const
    {
        Blob blob = {};
        std::memcpy(blob.data(), &settings, sizeof settings);
        return blob;
    }
    /** Signs a blob without other changes. */
    void sign(Blob& blob) const
    {
        std::memcpy(&blob[1010], "HESH", 4);
        const uint32_t crc = peer->crc(blob);
        for (size_t i = 0; i < 4; ++i) {
            blob[1020 + i] = static_cast<uint8_t>(crc >> 8 * i);
        }
    }
    static void set_model(Blob& blob, const char* model)
    {
        std::fill_n(&blob[2], 31, uint8_t{0});
        std::memcpy(&blob[2], model, std::strlen(model));
    }

    Handler handler;
    LogCapture logs;
    EEPROM_DEVICE_SETTINGS settings = sample_settings();
    std::optional<PersistentDataTestPeer> peer;
};

TEST_F(SettingsBlob, SizesAndAddresses)
{
    EXPECT_EQ(TOTAL_BLOB_SIZE, 1024u);
    EXPECT_EQ(SIGNING_HEADER_OFFSET, 1010u);
    EXPECT_EQ(DATA_REGION_SIZE, 1010u);
    EXPECT_EQ(sizeof(EEPROM_DEVICE_SETTINGS), 552u);
    EXPECT_EQ(sizeof(sEprInfo_t), 552u);
    EXPECT_EQ(EEPROM_START_ADDRESS, 0u);
    EXPECT_EQ(EEPROM_CALIB_DATA_START_ADDRESS, 0x400u);
    EXPECT_EQ(CURRENT_STRUCT_VERSION, 1);
    EXPECT_EQ(INVALID, 0);
    EXPECT_EQ(LEGACY_VALID, 1);
    EXPECT_EQ(VERIFIED, 2);
}

TEST_F(SettingsBlob, FieldsAreLittleEndianAtTheirOffsets)
{
    const Blob blob = legacy();
    const auto text_at = [&](size_t offset) { return reinterpret_cast<const char*>(&blob[offset]); };
    EXPECT_EQ(blob[0], 0x1e);
    EXPECT_EQ(blob[1], 0x08);
    EXPECT_STREQ(text_at(2), "OVX3651P");
    EXPECT_STREQ(text_at(33), "230042");
    EXPECT_EQ(blob[95], 'D');
    EXPECT_STREQ(text_at(96), "Halde Electronics Ltd.");
    EXPECT_EQ(blob[127], 1);
    EXPECT_STREQ(text_at(129), "OVX3651P-230042");
    EXPECT_EQ(Blob::value_type(blob[352]), 0x00);
    EXPECT_EQ(blob[353], 0xc8); // 20000000000 = 0x04a817c800
    EXPECT_EQ(blob[354], 0x17);
    EXPECT_EQ(blob[355], 0xa8);
    EXPECT_EQ(blob[356], 0x04);
    EXPECT_EQ(blob[380], 0xe2); // -30
    EXPECT_EQ(blob[383], 0xff);
    EXPECT_STREQ(text_at(388), "5025");
    EXPECT_EQ(blob[514], 0x8c);
    EXPECT_EQ(blob[515], 0x16);
    EXPECT_EQ(blob[549], 3);
}

TEST_F(SettingsBlob, HoldsTheRecordThenZerosThenTheHeader)
{
    const Blob blob = peer->build(&settings, 0x0203, 0x04050607);
    EXPECT_EQ(std::memcmp(blob.data(), &settings, sizeof settings), 0);
    EXPECT_TRUE(std::all_of(&blob[552], &blob[1010], [](uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(std::string(&blob[1010], &blob[1020]), "HESH\x03\x02\x07\x06\x05\x04");
    const uint32_t crc = static_cast<uint32_t>(blob[1020] | blob[1021] << 8 | blob[1022] << 16) |
                         static_cast<uint32_t>(blob[1023]) << 24;
    EXPECT_EQ(crc, peer->crc(blob));
}

TEST_F(SettingsBlob, TheCrcCoversAllButItself)
{
    Blob blob = verified();
    const uint32_t crc = peer->crc(blob);
    const Crc32Utils& utils = *Crc32Utils::getInstance();
    EXPECT_EQ(crc, utils.crc32_signoff(utils.calculate_crc32(utils.crc32_init(), blob.data(), 1020)));
    blob[1020] ^= 0xff;
    EXPECT_EQ(peer->crc(blob), crc);
    blob[1019] ^= 0x01;
    EXPECT_NE(peer->crc(blob), crc);
}

TEST_F(SettingsBlob, CanBeBuiltFromTheRecordInAnotherBlob)
{
    Blob other = verified();
    std::fill(&other[552], other.data() + other.size(), uint8_t{0x77});
    EXPECT_EQ(peer->build(other.data(), 1, 57), verified());
}

TEST_F(SettingsBlob, ASignedBlobOfAKnownModelIsVerified)
{
    EXPECT_EQ(peer->classify(verified()), VERIFIED);
}

TEST_F(SettingsBlob, ANewerLayoutIsClassifiedTheSameWay)
{
    EXPECT_EQ(peer->classify(peer->build(&settings, 2, 57)), VERIFIED);
    EXPECT_EQ(peer->classify(peer->build(&settings, 0xffff, 0xffffffff)), VERIFIED);
    EXPECT_EQ(peer->classify(peer->build(&settings, 0, 0)), VERIFIED);
}

TEST_F(SettingsBlob, AnyFlippedBitButTheMarkersMakesAVerifiedBlobInvalid)
{
    const Blob good = verified();
    size_t invalid = 0;
    for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
        Blob blob = good;
        blob[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
        const bool in_marker = bit / 8 >= 1010 && bit / 8 < 1014;
        ASSERT_EQ(peer->classify(blob), in_marker ? LEGACY_VALID : INVALID)
            << "byte " << bit / 8 << " bit " << bit % 8;
        invalid += in_marker ? 0 : 1;
    }
    EXPECT_EQ(invalid, 8160u);
}

TEST_F(SettingsBlob, AllZerosAndAllOnesAreInvalid)
{
    Blob blob = {};
    EXPECT_EQ(peer->classify(blob), INVALID);
    blob.fill(0xff);
    EXPECT_EQ(peer->classify(blob), INVALID);
}

TEST_F(SettingsBlob, AnotherModelNeedsAnotherSignature)
{
    Blob blob = verified();
    set_model(blob, "OVX5351P");
    EXPECT_EQ(peer->classify(blob), INVALID);
    sign(blob);
    EXPECT_EQ(peer->classify(blob), VERIFIED);
}

TEST_F(SettingsBlob, ASignedModelOfAnotherPlatformIsInvalid)
{
    Blob blob = verified();
    set_model(blob, "OVX3651B");
    EXPECT_EQ(peer->classify(blob), INVALID);
    sign(blob);
    EXPECT_EQ(peer->classify(blob), INVALID);
}

TEST_F(SettingsBlob, ARecordWithoutMarkerIsLegacyWhenItsModelIsKnown)
{
    EXPECT_EQ(peer->classify(legacy()), LEGACY_VALID);
    Blob erased_after = legacy();
    std::fill(&erased_after[552], erased_after.data() + erased_after.size(), uint8_t{0xff});
    EXPECT_EQ(peer->classify(erased_after), LEGACY_VALID);
    Blob foreign = legacy();
    set_model(foreign, "KSR-7036");
    EXPECT_EQ(peer->classify(foreign), INVALID);
}

TEST_F(SettingsBlob, ASignedBlobWithoutItsMarkerIsLegacy)
{
    Blob blob = verified();
    std::fill_n(&blob[1010], 4, uint8_t{0});
    EXPECT_EQ(peer->classify(blob), LEGACY_VALID);
}

TEST_F(SettingsBlob, AStrayMarkerMakesALegacyImageInvalidUnlessItsCrcFits)
{
    Blob blob = legacy();
    std::memcpy(&blob[1010], "HESH", 4);
    EXPECT_EQ(peer->classify(blob), INVALID);
    sign(blob);
    EXPECT_EQ(peer->classify(blob), VERIFIED);
}

TEST_F(SettingsBlob, AModelNameMustMatchInEveryCharacter)
{
    for (const char* name : {"ovx3651p", "OVX3651", "OVX3651P ", " OVX3651P", ""}) {
        Blob blob = legacy();
        set_model(blob, name);
        EXPECT_EQ(peer->classify(blob), INVALID) << name;
    }
}

TEST_F(SettingsBlob, AModelNameWithoutTerminatorIsUnknown)
{
    Blob blob = legacy();
    std::fill(blob.begin(), blob.end(), uint8_t{'O'});
    EXPECT_EQ(peer->classify(blob), INVALID);
}

TEST_F(SettingsBlob, WithoutTheCrcUtilityTheCrcIsZeroAndThatIsLogged)
{
    const Blob signed_before = verified();
    g_crc_unavailable = true;
    EXPECT_EQ(peer->crc(signed_before), 0u);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "computeCrc32 Crc32Utils unavailable"}}));
    EXPECT_EQ(peer->classify(signed_before), INVALID);
    const Blob written = verified();
    EXPECT_EQ(std::string(&written[1020], written.data() + 1024), std::string(4, '\0'));
    EXPECT_EQ(peer->classify(written), VERIFIED);
}

TEST_F(SettingsBlob, ASerialIsRealUnlessItIsTheDefault)
{
    EXPECT_TRUE(peer->has_real_serial("230042", "230000"));
    EXPECT_FALSE(peer->has_real_serial("230000", "230000"));
    EXPECT_TRUE(peer->has_real_serial("", "230000"));
    EXPECT_TRUE(peer->has_real_serial("230000", nullptr));
    EXPECT_TRUE(peer->has_real_serial("", nullptr));
    EXPECT_FALSE(peer->has_real_serial("", ""));
}

TEST_F(SettingsBlob, SerialsAreComparedIn31Characters)
{
    const std::string same(31, 's');
    EXPECT_FALSE(peer->has_real_serial((same + "1").c_str(), (same + "2").c_str()));
    EXPECT_TRUE(peer->has_real_serial((same.substr(1) + "1").c_str(), (same.substr(1) + "2").c_str()));
}

TEST_F(SettingsBlob, FindModelReturnsTheRow)
{
    EXPECT_EQ((*peer)->findModel("OVX2751P"), &g_portableModelsTable[0]);
    EXPECT_EQ((*peer)->findModel("OVX6131P"), &g_portableModelsTable[3]);
    EXPECT_EQ((*peer)->findModel("OVX3651B"), nullptr);
    EXPECT_EQ((*peer)->findModel(""), nullptr);
    EXPECT_EQ((*peer)->findModel(nullptr), nullptr);
}

TEST_F(SettingsBlob, FindModelTakesTheFirstMatch)
{
    const sDevArch_t twice[] = {{"A", 1, 1, 1, 1, 1, 0}, {"A", 2, 1, 1, 1, 1, 0}, {}};
    OutputCapture out(STDOUT_FILENO);
    PersistentDataTestPeer other(handler, twice);
    EXPECT_EQ(other->findModel("A"), &twice[0]);
}

TEST_F(SettingsBlob, FindModelOfAnEmptyOrMissingTableIsNull)
{
    OutputCapture out(STDOUT_FILENO);
    const sDevArch_t closing_row[] = {{}};
    PersistentDataTestPeer empty(handler, closing_row);
    EXPECT_EQ(empty->findModel("OVX3651P"), nullptr);
    PersistentDataTestPeer missing(handler, nullptr);
    EXPECT_EQ(missing->findModel("OVX3651P"), nullptr);
}

TEST_F(SettingsBlob, FieldsAreThe17RowsOfIdentification)
{
    EXPECT_EQ((*peer)->GetFieldsSize(), 544u);
    auto& rows = peer->flash_params();
    for (size_t row = 0; row < 17; ++row) {
        std::fill_n(rows[row], 32, static_cast<char>('A' + row));
    }
    std::array<uint8_t, 546> copy;
    copy.fill(0xee);
    EXPECT_TRUE(*peer->data >> &copy[1]);
    EXPECT_EQ(copy[0], 0xee);
    EXPECT_EQ(std::memcmp(&copy[1], rows, 544), 0);
    EXPECT_EQ(copy[545], 0xee);
}

TEST_F(SettingsBlob, FrequencyCodesAndMasks)
{
    const int frequencies[16] = {-1, -1, -1, 3, -1, -1, 6, -1, 8, -1, -1, -1, 12, 14, 20, 40};
    EXPECT_TRUE(std::equal(std::begin(frequencies), std::end(frequencies), peer->frequencies()));
    for (unsigned bits = 0; bits <= 16; ++bits) {
        EXPECT_EQ(peer->masks()[bits], (1U << bits) - 1);
    }
}

TEST_F(SettingsBlob, ANewObjectIsAllZero)
{
    EEPROM_DEVICE_SETTINGS zero;
    std::memset(&zero, 0, sizeof zero);
    EXPECT_EQ(std::memcmp((*peer)->getSettings(), &zero, sizeof zero), 0);
    EXPECT_EQ(std::memcmp(&peer->last_persisted(), &zero, sizeof zero), 0);
    const sNetCfg_t net = {};
    EXPECT_EQ(std::memcmp((*peer)->getNetIfConfig(), &net, sizeof net), 0);
    EXPECT_EQ(peer->generation(), 0u);
    EXPECT_EQ(peer->version(), 0);
}

TEST(SettingsOwner, IsNullBeforeInitAndThenAlwaysTheSame)
{
    OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(CPersistentData::GetInstance(), nullptr);
    Handler handler;
    CPersistentData* const data = CPersistentData::Init(&handler, g_portableModelsTable);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(out.text(), "CPersistentData::CPersistentData :: object created\n");
    EXPECT_EQ(CPersistentData::GetInstance(), data);
    EXPECT_EQ(CPersistentData::Init(nullptr, g_benchtopModelsTable), data);
    EXPECT_NE(data->findModel("OVX3651P"), nullptr) << "later arguments are ignored";
    EXPECT_EQ(data->findModel("OVX3651B"), nullptr);
    EXPECT_EQ(out.text(), "CPersistentData::CPersistentData :: object created\n");
}

TEST(SettingsOwnerDeathTest, ANullConnectionHandlerEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(CPersistentData::Init(nullptr, g_portableModelsTable), "dch != nullptr");
}

} // namespace
