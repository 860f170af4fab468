// Which stored settings an instrument goes by: its EEPROM's, its backup file's or the factory's.
#include "orvan_db.h"

#include "orvan_sdk/lxi/PersistentData.h"

#include <array>
#include <crc32_utils.h>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>

using namespace orvan_test;
using namespace HaldeElec::Orvan;

namespace {

using Blob = std::array<uint8_t, TOTAL_BLOB_SIZE>;

const std::string kFactoryReply = "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n";

struct Identity {
    const char* description;
    const char* model;
    const char* serial;
    const char* version;

    std::string reply() const
    {
        return std::string(description) + "," + model + "," + serial + "," + version + ";+OK\r\n";
    }
};

constexpr Identity kOfEeprom = {"Bench & Co.", "OVX3654B", "241107", "02.3.004"};
constexpr Identity kOfFile = {"Rack Works", "OVX3652R", "198001", "01.9.017"};
constexpr Identity kOfNobody = {"Elsewhere Inc.", "XYZ1", "5", "0"};

/** The record alone, as it was stored before there were signatures. */
Blob unsigned_blob(const Identity& identity)
{
    EEPROM_DEVICE_SETTINGS settings;
    std::memset(&settings, 0, sizeof settings);
    std::strcpy(settings.description, identity.description);
    std::strcpy(settings.modelName, identity.model);
    std::strcpy(settings.serialNum, identity.serial);
    std::strcpy(settings.fwVersion, identity.version);
    std::strcpy(settings.scpiPort, "5999");
    std::strcpy(settings.dns1, "10.0.0.53");
    std::strcpy(settings.dns2, "10.0.0.54");
    settings.numDevices = 4;
    Blob blob{};
    std::memcpy(blob.data(), &settings, sizeof settings);
    return blob;
}

Blob signed_blob(const Identity& identity)
{
    Blob blob = unsigned_blob(identity);
    SigningHeader header{SIGNING_MARKER, CURRENT_STRUCT_VERSION, 57, 0};
    const auto put = [&] { std::memcpy(blob.data() + SIGNING_HEADER_OFFSET, &header, sizeof header); };
    put();
    const Crc32Utils* const crc = Crc32Utils::getInstance();
    header.crc32 = crc->crc32_signoff(
        crc->calculate_crc32(crc->crc32_init(), blob.data(), blob.size() - sizeof header.crc32));
    put();
    return blob;
}

Blob damaged(Blob blob)
{
    blob[700] ^= 0x10; // in the zeros behind the record
    return blob;
}

void write_bytes(const std::filesystem::path& path, const void* bytes, size_t count)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
}

void write_eeprom(const std::filesystem::path& state, const Blob& blob)
{
    std::array<uint8_t, 8192> cells; // of a CAT25640
    cells.fill(0xFF);
    std::memcpy(cells.data(), blob.data(), blob.size());
    write_bytes(state / "board/eeprom.bin", cells.data(), cells.size());
}

void write_backup(const std::filesystem::path& state, const Blob& blob, size_t count = TOTAL_BLOB_SIZE)
{
    write_bytes(state / "halde/config/flash.ini", blob.data(), count);
}

std::string identity_of(const Instrument& instrument)
{
    return instrument.client().ask("*IDN?");
}

std::string identity_with(const Instrument::Preparation& prepare)
{
    const Instrument instrument({}, prepare);
    return identity_of(instrument);
}

/** The word that follows `name` in the output of `ip`, without a prefix length. */
std::string word_behind(const std::string& text, const std::string& name)
{
    const size_t begin = text.find(name + " ");
    if (begin == std::string::npos)
        return "";
    const size_t word = begin + name.size() + 1;
    return text.substr(word, text.find_first_of(" /\n", word) - word);
}

} // namespace

TEST(Identity, IsTheOneInTheEeprom)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) { write_eeprom(state, signed_blob(kOfEeprom)); }),
              kOfEeprom.reply());
}

TEST(Identity, IsTheEepromsWhenTheBackupFileHasAnother)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) {
                  write_eeprom(state, signed_blob(kOfEeprom));
                  write_backup(state, signed_blob(kOfFile));
              }),
              kOfEeprom.reply());
}

TEST(Identity, IsTheBackupFilesWhenTheEepromIsBlank)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) { write_backup(state, signed_blob(kOfFile)); }),
              kOfFile.reply());
}

TEST(Identity, IsTheBackupFilesWhenTheEepromIsDamaged)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) {
                  write_eeprom(state, damaged(signed_blob(kOfEeprom)));
                  write_backup(state, signed_blob(kOfFile));
              }),
              kOfFile.reply());
}

TEST(Identity, IsTheFactorysWhenBothAreBlankAndTheLogSaysSo)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    EXPECT_EQ(identity_of(instrument), kFactoryReply);
    EXPECT_NE(instrument.service_log().find(
                  "neither EEPROM nor backup file holds usable settings; the factory identity stands"),
              std::string::npos);
}

TEST(Identity, IsTheFactorysWhenBothAreDamaged)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) {
                  write_eeprom(state, damaged(signed_blob(kOfEeprom)));
                  write_backup(state, damaged(signed_blob(kOfFile)));
              }),
              kFactoryReply);
}

TEST(Identity, OfAModelThatIsNotKnownCountsNotThoughItIsSigned)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) {
                  write_eeprom(state, signed_blob(kOfNobody));
                  write_backup(state, signed_blob(kOfFile));
              }),
              kOfFile.reply());
}

TEST(Identity, OfAStoreFromBeforeSignaturesCounts)
{
    ORVAN_NEEDS_SANDBOX();
    EXPECT_EQ(identity_with([](const auto& state) {
                  write_backup(state, unsigned_blob(kOfFile), sizeof(EEPROM_DEVICE_SETTINGS));
              }),
              kOfFile.reply());
}

TEST(Identity, OutlivesAReboot)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({}, [](const auto& state) { write_eeprom(state, signed_blob(kOfEeprom)); });
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(identity_of(instrument), kOfEeprom.reply());
}

TEST(Settings, ReachTheNetworkElementsOfEveryRecordWithTheLiveAddress)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({}, [](const auto& state) { write_eeprom(state, signed_blob(kOfEeprom)); });
    const std::string link = instrument.exec("controller", {"ip", "-o", "link", "show", "eth0"}).output;
    const std::string address =
        instrument.exec("controller", {"ip", "-o", "-4", "address", "show", "eth0"}).output;
    ASSERT_NE(word_behind(address, "inet"), "") << address;
    ASSERT_NE(word_behind(link, "link/ether"), "") << link;
    const auto quoted = [](const std::string& text) { return '"' + text + '"'; };
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(element(instrument, channel, "if_name"), "\"eth0\"");
        EXPECT_EQ(element(instrument, channel, "if_addr"), quoted(word_behind(address, "inet")));
        EXPECT_EQ(element(instrument, channel, "if_mac"), quoted(word_behind(link, "link/ether")));
        EXPECT_EQ(element(instrument, channel, "if_mask"), "\"255.255.255.0\"");
        EXPECT_EQ(element(instrument, channel, "if_dhcp"), "OFF");
        EXPECT_EQ(element(instrument, channel, "if_port"), "\"5999\"");
        EXPECT_EQ(element(instrument, channel, "if_dns1"), "\"10.0.0.53\"");
        EXPECT_EQ(element(instrument, channel, "if_dns2"), "\"10.0.0.54\"");
    }
}
