// The settings an instrument uses, and how a start reconciles their two copies.
#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>

#include <gtest/gtest.h>

#include "instrument.h"
#include "orvan_db.h"
#include "stored_settings.h"

using namespace orvan_test;

namespace {

constexpr StoredIdentity kBench = {"Bench & Co.", "OVX3654B", "241107", "1.19.145", "bench-4", 4, 0x3604};
constexpr StoredIdentity kRack = {"Rack Works", "OVX3652R", "198001", "1.19.145", "rack-2", 2, 0x36A2};
constexpr StoredIdentity kDefaultSerial = {"Bench & Co.", "OVX3654B", "230000", "1.19.145",
                                           "bench-4",     4,          0x3604};
constexpr StoredIdentity kForeign = {"Elsewhere Inc.", "XYZ1", "5", "0", "xyz", 4, 0x3604};
constexpr StoredIdentity kFactory = {"Halde Electronics Ltd.", "OVX3651B", "230000", "1.19.145",
                                     "OVX3651B-230000",        1,          0x3601};

SettingsRecord of_eeprom()
{
    return settled_record(kBench);
}
SettingsRecord of_file()
{
    return settled_record(kRack);
}

/** Clears the rest of the field as well. */
template <size_t size>
void put(char (&field)[size], const char* text)
{
    std::strncpy(field, text, size);
}

/** The factory record after a start has applied the model and queried the modules. */
SettingsRecord of_factory()
{
    SettingsRecord record = settled_record(kFactory);
    record.options = 0x009E; // MOD, LP, 20 GHz
    record.hardwareVersion = 'D';
    record.dhcpEnabled = 1;
    put(record.fixIp, "192.168.0.100");
    put(record.fixMask, "255.255.255.0");
    put(record.mac, "b8:27:eb:4f:3b:7d");
    put(record.fixGw, "10.0.0.138");
    put(record.dns1, "8.8.8.8");
    put(record.dns2, "1.1.1.1");
    record.minCwFreq = 50'000;
    record.defCwFreq = 1'000'000'000;
    record.maxCwPow = 15;
    record.minCwPow = -30;
    record.defCwPow = 5;
    put(record.scpiPort, "5025");
    put(record.pldVersion, "A-1");
    return record;
}

/** A record of an earlier firmware: without the model's properties, and with a module since replaced. */
SettingsRecord of_before()
{
    SettingsRecord record = of_eeprom();
    record.options = 0x0013;
    record.numDevices = 1;
    record.maxCwFreq = 0;
    record.device_type = 0;
    record.vendor_id = record.product_id = 0;
    put(record.fpgaVersion, "0.9");
    return record;
}

enum class Written { kNone, kEeprom, kFile, kBoth };

/** A start: the contents of both stores before and after it. */
struct Start {
    const char* name;
    std::function<void(const std::filesystem::path&)> prepare;
    StoredIdentity identity;
    std::function<SettingsImage()> left;
    Written written;
    const char* log; // at warning or error level; null for none

    friend void PrintTo(const Start& start, std::ostream* out) { *out << start.name; }
};

using State = std::filesystem::path;

auto eeprom(SettingsImage (*image)())
{
    return [image](const State& state) { write_eeprom(state, image()); };
}
auto file(SettingsImage (*image)(), size_t size = std::tuple_size_v<SettingsImage>)
{
    return [image, size](const State& state) { write_backup(state, image(), size); };
}
template <typename First, typename Second>
auto both(First first, Second second)
{
    return [=](const State& state) {
        first(state);
        second(state);
    };
}
void blank(const State& state)
{
    SettingsImage erased;
    erased.fill(0xFF);
    write_eeprom(state, erased);
}

constexpr size_t kRecordSize = sizeof(SettingsRecord);

// clang-format off
SettingsImage eeprom57()        { return signed_image(of_eeprom(), 57); }
SettingsImage eeprom58()        { return signed_image(of_eeprom(), 58); }
SettingsImage eeprom1()         { return signed_image(of_eeprom(), 1); }
SettingsImage newer_eeprom()    { return signed_image(of_eeprom(), 57, 2); }
SettingsImage damaged_eeprom()  { return damaged(eeprom57()); }
SettingsImage legacy_eeprom()   { return unsigned_image(of_eeprom()); }
SettingsImage default_eeprom()  { return unsigned_image(settled_record(kDefaultSerial)); }
SettingsImage foreign_eeprom()  { return signed_image(settled_record(kForeign), 60); }
SettingsImage earlier_eeprom()  { return signed_image(of_before(), 57); }
SettingsImage file31()          { return signed_image(of_file(), 31); }
SettingsImage file1()           { return signed_image(of_file(), 1); }
SettingsImage damaged_file()    { return damaged(file31()); }
SettingsImage legacy_file()     { return unsigned_image(of_file()); }
// The start signs the factory settings, then stores what it has found about model and modules.
SettingsImage factory2()        { return signed_image(of_factory(), 2); }

const char* const kBothSigned = "[CPersistentData] EEPROM and file both VERIFIED but differ - keeping EEPROM, "
                                "investigate";
const char* const kRestoring  = "[CPersistentData] EEPROM invalid, restoring from backup file";
const char* const kFileUsed   = "[CPersistentData] Unexpected: EEPROM legacy but file VERIFIED - using file, "
                                "investigate";
const char* const kBackupUsed = "[CPersistentData] EEPROM had default serial, backup file had a real serial - "
                                "using backup file";
const char* const kNewer      = "[CPersistentData] EEPROM data version (2) is newer than this firmware (1) - "
                                "downgrading, newer fields discarded";

const Start kStarts[] = {
    //                                                                                  identity  left      written           log
    {"BothEqual",             both(eeprom(eeprom57), file(eeprom57)),                   kBench,  eeprom57, Written::kNone,   nullptr},
    {"FileMissing",           eeprom(eeprom57),                                         kBench,  eeprom57, Written::kFile,   nullptr},
    {"FileDamaged",           both(eeprom(eeprom57), file(damaged_file)),               kBench,  eeprom57, Written::kFile,   nullptr},
    {"FileShort",             both(eeprom(eeprom57), file(eeprom57, 100)),              kBench,  eeprom57, Written::kFile,   nullptr},
    {"FileOfAnother",         both(eeprom(eeprom57), file(file31)),                     kBench,  eeprom57, Written::kFile,   kBothSigned},
    {"EepromBlank",           file(file31),                                             kRack,    file31,   Written::kEeprom, kRestoring},
    {"EepromDamaged",         both(eeprom(damaged_eeprom), file(file31)),               kRack,    file31,   Written::kEeprom, kRestoring},
    {"EepromOfAnotherFamily", both(eeprom(foreign_eeprom), file(file31)),               kRack,    file31,   Written::kEeprom, kRestoring},
    {"EepromUnsigned",        both(eeprom(legacy_eeprom), file(file31)),                kRack,    file31,   Written::kEeprom, kFileUsed},
    {"EepromUnsignedAlone",   eeprom(legacy_eeprom),                                    kBench,  eeprom1,  Written::kBoth,   nullptr},
    {"FileUnsignedAlone",     file(legacy_file, kRecordSize),                           kRack,    file1,    Written::kBoth,   kRestoring},
    {"EepromOfDefaultSerial", both(eeprom(default_eeprom), file(legacy_file)),          kRack,    file1,    Written::kBoth,   kBackupUsed},
    {"EepromOfNewerLayout",   eeprom(newer_eeprom),                                     kBench,  eeprom58, Written::kBoth,   kNewer},
    {"BothDamaged",           both(eeprom(damaged_eeprom), file(damaged_file)),         kFactory, factory2, Written::kBoth,   nullptr},
    {"BothBlank",             blank,                                                    kFactory, factory2, Written::kBoth,   nullptr},
    {"BothOfAnEarlierStart",  both(eeprom(earlier_eeprom), file(earlier_eeprom)),       kBench,  eeprom58, Written::kBoth,   nullptr},
};
// clang-format on

/** Reports where two images differ, not all of both. */
void expect_same(const std::string& image, const std::string& expected, const char* store)
{
    EXPECT_EQ(image.size(), expected.size()) << store;
    const auto [at, other] = std::ranges::mismatch(image, expected);
    EXPECT_EQ(at - image.begin(), std::ssize(image)) << store << " parts from what is expected here";
}

class StoredSettings : public testing::TestWithParam<Start> {};

} // namespace

TEST_P(StoredSettings, AreReconciledRepairedAndThenLeftAlone)
{
    ORVAN_NEEDS_SANDBOX();
    const Start& start = GetParam();
    const Instrument instrument({}, [&](const State& state) {
        start.prepare(state);
        age_stores(state);
    });
    const State& state = instrument.state();
    const std::string left = bytes_of(start.left());
    EXPECT_EQ(instrument.client().ask("*IDN?"), start.identity.reply());
    expect_same(bytes_of(read_eeprom(state)), left, "EEPROM");
    expect_same(read_backup(state), left, "backup");
    EXPECT_EQ(eeprom_was_written(state),
              start.written == Written::kEeprom || start.written == Written::kBoth);
    EXPECT_EQ(backup_was_written(state), start.written == Written::kFile || start.written == Written::kBoth);
    const std::string log = instrument.service_log();
    for (const char* line : {kBothSigned, kRestoring, kFileUsed, kBackupUsed, kNewer}) {
        EXPECT_EQ(log.find(line) != std::string::npos, line == start.log) << line;
    }

    age_stores(state);
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(instrument.client().ask("*IDN?"), start.identity.reply());
    EXPECT_FALSE(eeprom_was_written(state));
    EXPECT_FALSE(backup_was_written(state));
    expect_same(bytes_of(read_eeprom(state)), left, "EEPROM");
    expect_same(read_backup(state), left, "backup");
}

INSTANTIATE_TEST_SUITE_P(Start, StoredSettings, testing::ValuesIn(kStarts),
                         [](const auto& start) { return start.param.name; });

TEST(Settings, OfANewInstrumentAreProducedInBothStores)
{
    ORVAN_NEEDS_SANDBOX();
    const struct {
        const char* model;
        const char* company;
        const char* version;
    } rows[] = {
        {"OVX3652R", "Halde Electronics Ltd.", "1.19.145"},
        {"OVX2751P", "Halde Electronics Ltd.", "1.19.140"},
        {"KSR-7053", "Marrick Signal Corp.", "1.19.148"},
    };
    for (const auto& [model, company, version] : rows) {
        const Instrument instrument({"--model", model});
        EXPECT_EQ(instrument.client().ask("*IDN?"),
                  std::string(company) + "," + model + ",100001," + version + ";+OK\r\n");
        expect_same(read_backup(instrument.state()), bytes_of(read_eeprom(instrument.state())), "backup");
    }
}

TEST(Settings, DamagedWhileTheInstrumentRunsAreRepairedByTheNextStart)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({}, eeprom(eeprom57));
    write_eeprom(instrument.state(), damaged(eeprom57()));
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(instrument.client().ask("*IDN?"), kBench.reply());
    expect_same(bytes_of(read_eeprom(instrument.state())), bytes_of(eeprom57()), "EEPROM");
    write_backup(instrument.state(), {}, 0);
    ASSERT_TRUE(instrument.reboot());
    expect_same(read_backup(instrument.state()), bytes_of(eeprom57()), "backup");
}

TEST(Settings, WithoutATerminatorInAnyTextStillServe)
{
    ORVAN_NEEDS_SANDBOX();
    SettingsRecord record;
    std::memset(&record, 'x', sizeof record);
    put(record.modelName, "OVX3654B");
    const Instrument instrument({},
                                [&](const State& state) { write_eeprom(state, signed_image(record, 57)); });
    const std::string text(31, 'x');
    // Texts that the start copies into the records are terminated in their last byte.
    const std::string cut(30, 'x');
    EXPECT_EQ(instrument.client().ask("*IDN?"), cut + ",OVX3654B," + cut + ",1.19.145;+OK\r\n");
    EXPECT_EQ(instrument.client().ask(":FREQ 4e9;:FREQ?"), "4000000000;+OK\r\n");
    EXPECT_EQ(instrument.exec("controller", {"hostname"}).output, text + "\n");
    for (const char* tag : {"if_port", "if_dns1", "if_dns2"}) {
        EXPECT_EQ(element(instrument, 4, tag), '"' + text + '"') << tag;
    }
    EXPECT_EQ(bytes_of(read_eeprom(instrument.state())), read_backup(instrument.state()));
}

TEST(Settings, RefusedByTheHostNameScriptAreLoggedAndKeepTheHostName)
{
    ORVAN_NEEDS_SANDBOX();
    SettingsRecord record = of_eeprom();
    put(record.hostName, "two words");
    const Instrument instrument({},
                                [&](const State& state) { write_eeprom(state, signed_image(record, 57)); });
    EXPECT_NE(
        instrument.service_log().find("he_set_hostname.sh: one argument is wanted, the host name; there "
                                      "are 2\n"),
        std::string::npos);
    EXPECT_NE(instrument.exec("controller", {"hostname"}).output, "two words\n");
    EXPECT_EQ(instrument.client().ask("*IDN?"), kBench.reply());
}

TEST(Settings, SetTheHostName)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({}, eeprom(eeprom57));
    EXPECT_EQ(instrument.exec("controller", {"hostname"}).output, "bench-4\n");
}

TEST(Settings, ReachTheNetworkElementsOfEveryRecordWithTheLiveAddress)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({}, eeprom(eeprom57));
    const auto expect_network = [&](const std::string& address, const std::string& mask,
                                    const std::string& gateway, const std::string& dhcp) {
        const auto quoted = [](const std::string& text) { return '"' + text + '"'; };
        for (int channel = 1; channel <= 4; ++channel) {
            EXPECT_EQ(element(instrument, channel, "if_name"), "\"eth0\"");
            EXPECT_EQ(element(instrument, channel, "if_addr"), quoted(address));
            EXPECT_EQ(element(instrument, channel, "if_mask"), quoted(mask));
            EXPECT_EQ(element(instrument, channel, "if_gate"), quoted(gateway));
            EXPECT_EQ(element(instrument, channel, "if_mac"), "\"02:00:0a:00:00:02\"");
            EXPECT_EQ(element(instrument, channel, "if_dhcp"), dhcp);
            EXPECT_EQ(element(instrument, channel, "if_port"), "\"5999\"");
            EXPECT_EQ(element(instrument, channel, "if_dns1"), "\"10.0.0.53\"");
            EXPECT_EQ(element(instrument, channel, "if_dns2"), "\"10.0.0.54\"");
        }
    };
    const auto configure = [&](const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"sudo", "/usr/local/bin/he_orvan_network_config.sh"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(instrument.exec("controller", command).status, 0);
        ASSERT_TRUE(instrument.reboot());
    };
    expect_network("10.0.0.2", "255.255.255.0", "10.0.0.1", "OFF");
    configure({"static", "-a", "10.0.0.9", "-n", "255.255.0.0", "-g", "10.0.0.1"});
    expect_network("10.0.0.9", "255.255.0.0", "10.0.0.1", "OFF");
    configure({"dynamic"});
    expect_network("10.0.0.102", "255.255.255.0", "10.0.0.1", "ON");
}
