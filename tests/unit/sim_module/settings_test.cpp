#include <cmath>
#include <string>

#include "instrument_fixture.h"
#include "module/parameters.h"
#include "module/settings_table.h"

using namespace sim_module;

namespace {

/** The limits of the fixture's model. */
Range range_of(const Setting& setting)
{
    static const Settings settings(*model_limits(Identity().model));
    return settings.resolve(setting.range);
}

bool has_query(const Setting& setting)
{
    return setting.rows != SettingRows::kSetOnly;
}

bool is_quantity(const Setting& setting)
{
    return (setting.form == SettingForm::kNumber || setting.form == SettingForm::kInteger) &&
           has_query(setting);
}

// Past a limit by less than a user would notice, but by enough to show in a 15-digit text.
double just_above(double value)
{
    return value + std::max(std::abs(value) * 1e-12, 1e-12);
}

double just_below(double value)
{
    return value - std::max(std::abs(value) * 1e-12, 1e-12);
}

const char kOutOfRange[] = "-ERR -222, \"Data out of range\";+OK";

class SettingsTest : public InstrumentTest {
protected:
    std::string set(const Setting& setting, const std::string& text)
    {
        return ask(short_header(setting.pattern) + " " + text);
    }
    std::string get(const Setting& setting, const std::string& parameter = "")
    {
        return value(short_header(setting.pattern) + "?" + parameter);
    }
};

} // namespace

TEST_F(SettingsTest, BothLimitsAreAccepted)
{
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            for (const double limit : {range_of(setting).minimum, range_of(setting).maximum}) {
                EXPECT_EQ(set(setting, quantity_text(limit)), "+OK") << setting.pattern;
                EXPECT_EQ(get(setting), quantity_text(limit)) << setting.pattern;
            }
        }
    }
}

TEST_F(SettingsTest, JustPastALimitIsRefusedAndChangesNothing)
{
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            const std::string before = get(setting);
            const std::string below = quantity_text(just_below(range_of(setting).minimum));
            EXPECT_EQ(set(setting, below), kOutOfRange) << setting.pattern << " " << below;
            const std::string above = quantity_text(just_above(range_of(setting).maximum));
            EXPECT_EQ(set(setting, above), kOutOfRange) << setting.pattern << " " << above;
            EXPECT_EQ(get(setting), before) << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, MinimumMaximumAndDefaultStandForTheirValues)
{
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            const std::string minimum = quantity_text(range_of(setting).minimum);
            const std::string maximum = quantity_text(range_of(setting).maximum);
            const std::string initial = quantity_text(setting.initial);
            EXPECT_EQ(get(setting, " MIN"), minimum) << setting.pattern;
            EXPECT_EQ(get(setting, " MAXIMUM"), maximum) << setting.pattern;
            EXPECT_EQ(get(setting, " def"), initial) << setting.pattern;
            EXPECT_EQ(get(setting), initial) << "a query changed " << setting.pattern;
            EXPECT_EQ(set(setting, "MINimum"), "+OK");
            EXPECT_EQ(get(setting), minimum) << setting.pattern;
            EXPECT_EQ(set(setting, "MAX"), "+OK");
            EXPECT_EQ(get(setting), maximum) << setting.pattern;
            EXPECT_EQ(set(setting, "DEF"), "+OK");
            EXPECT_EQ(get(setting), initial) << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, ValuesOfTheTableAreInRange)
{
    for (const Setting& setting : settings_table()) {
        if (setting.form == SettingForm::kNumber || setting.form == SettingForm::kInteger) {
            const Range range = range_of(setting);
            EXPECT_LT(range.minimum, range.maximum) << setting.pattern;
            EXPECT_GE(setting.initial, range.minimum) << setting.pattern;
            EXPECT_LE(setting.initial, range.maximum) << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, BooleansAcceptWordsAndNumbersAndReturnOneOrZero)
{
    for (const Setting& setting : settings_table()) {
        if (setting.form == SettingForm::kBoolean && has_query(setting)) {
            for (const char* on : {"ON", "on", "1", "5"}) {
                EXPECT_EQ(set(setting, "OFF"), "+OK");
                EXPECT_EQ(set(setting, on), "+OK") << setting.pattern << " " << on;
                EXPECT_EQ(get(setting), "1") << setting.pattern << " " << on;
            }
            for (const char* off : {"OFF", "Off", "0", "0.2"}) {
                EXPECT_EQ(set(setting, "ON"), "+OK");
                EXPECT_EQ(set(setting, off), "+OK") << setting.pattern << " " << off;
                EXPECT_EQ(get(setting), "0") << setting.pattern << " " << off;
            }
            EXPECT_EQ(set(setting, "MAYBE"), "-ERR -224, \"Illegal parameter value\";+OK");
            EXPECT_EQ(get(setting), "0") << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, ChoicesAcceptBothFormsAndReturnTheShortOne)
{
    for (const Setting& setting : settings_table()) {
        if (setting.form == SettingForm::kChoice && setting.rows == SettingRows::kSetAndQuery) {
            for (const scpi_choice_def_t* choice = setting.choices; choice->name != nullptr; ++choice) {
                for (const std::string& text : {short_header(choice->name), long_header(choice->name)}) {
                    EXPECT_EQ(ask("*RST"), "+OK");
                    EXPECT_EQ(set(setting, text), "+OK") << setting.pattern << " " << text;
                    EXPECT_EQ(get(setting), short_header(choice->name)) << setting.pattern;
                }
            }
            const std::string before = get(setting);
            EXPECT_EQ(set(setting, "ELSEwhere"), "-ERR -224, \"Illegal parameter value\";+OK")
                << setting.pattern;
            EXPECT_EQ(get(setting), before) << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, ResetSetsEveryValueOfTheTable)
{
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            set(setting, "MIN");
        } else if (setting.form == SettingForm::kBoolean) {
            set(setting, setting.initial != 0 ? "OFF" : "ON");
        } else if (setting.form == SettingForm::kText) {
            set(setting, "\"X\"");
        }
    }
    EXPECT_EQ(ask("*RST"), "+OK");
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            EXPECT_EQ(get(setting), quantity_text(setting.initial)) << setting.pattern;
        } else if (setting.form == SettingForm::kBoolean && has_query(setting)) {
            EXPECT_EQ(get(setting), setting.initial != 0 ? "1" : "0") << setting.pattern;
        } else if (setting.form == SettingForm::kText) {
            EXPECT_EQ(get(setting), "\"\"") << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, ANumberOfAnotherUnitIsRefusedAndChangesNothing)
{
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            const std::string before = get(setting);
            EXPECT_EQ(set(setting, "5 V"), "-ERR -131, \"Invalid suffix\";+OK") << setting.pattern;
            EXPECT_EQ(get(setting), before) << setting.pattern;
        }
    }
}

TEST_F(SettingsTest, AnExtraParameterChangesNothing)
{
    const char kTooMany[] = "-ERR -108, \"Parameter not allowed\";+OK";
    for (const Setting& setting : settings_table()) {
        if (is_quantity(setting)) {
            EXPECT_EQ(set(setting, "MIN"), "+OK") << setting.pattern;
            EXPECT_EQ(set(setting, "MAX,MAX"), kTooMany) << setting.pattern;
            EXPECT_EQ(get(setting), quantity_text(range_of(setting).minimum)) << setting.pattern;
        } else if (setting.form == SettingForm::kBoolean && has_query(setting)) {
            EXPECT_EQ(set(setting, "OFF"), "+OK") << setting.pattern;
            EXPECT_EQ(set(setting, "ON,1"), kTooMany) << setting.pattern;
            EXPECT_EQ(get(setting), "0") << setting.pattern;
        }
    }
    EXPECT_EQ(ask(":SYST:EMUL:MOD \"A\",1"), kTooMany);
    EXPECT_EQ(value(":SYST:EMUL:MOD?"), "\"\"");
    EXPECT_EQ(ask(":TRIG:SOUR BUS,1"), kTooMany);
    EXPECT_EQ(value(":TRIG:SOUR?"), "EXT");
}

TEST_F(SettingsTest, UnitsAreConvertedToTheBaseUnit)
{
    struct Row {
        const char* set;
        const char* query;
        const char* value;
    };
    const Row rows[] = {
        {":FREQ 1GHz", ":FREQ?", "1000000000"},
        {":FREQ 1.1 ghz", ":FREQ?", "1100000000"},
        {":FREQ 50kHz", ":FREQ?", "50000"},
        {":FREQ 2450.000001MHz", ":FREQ?", "2450000001"},
        {":FREQ 1234567890.125", ":FREQ?", "1234567890.125"},
        {":FREQ #H3B9ACA00", ":FREQ?", "1000000000"},
        {":FREQ 1e9", ":FREQ?", "1000000000"},
        {":POW -10dBm", ":POW?", "-10"},
        {":POW -0", ":POW?", "0"},
        {":POW 3.25 DBM", ":POW?", "3.25"},
        {":TRIG:TIM:TIME 5 ms", ":TRIG:TIM:TIME?", "0.005"},
        {":TRIG:TIM:TIME 33.3us", ":TRIG:TIM:TIME?", "3.33E-05"},
        {":TRIG:DEL 1.5", ":TRIG:DEL?", "1.5"},
        {":AM:DEPT 33PCT", ":AM:DEPT?", "33"},
        {":PHAS 45DEG", ":PHAS?", "45"},
        {":PHAS 0RAD", ":PHAS?", "0"},
        {":PHAS 3141.592653589793 MRAD", ":PHAS?", "180"},
        {":PM:DEV 1.5", ":PM:DEV?", "1.5"},
        {":PM:DEV 180DEG", ":PM:DEV?", "3.14159265358979"},
        {":ROSC:OUTP:FREQ 100 MHz", ":ROSC:OUTP:FREQ?", "100000000"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ask(row.set), "+OK") << row.set;
        EXPECT_EQ(value(row.query), row.value) << row.set;
    }
}

TEST(QuantityText, IsAWholeNumberADecimalOrOneWithAPointAndASignedExponent)
{
    const std::pair<double, const char*> rows[] = {
        {0, "0"},
        {-0.0, "0"},
        {5, "5"},
        {-90, "-90"},
        {20e9, "20000000000"},
        {0.005, "0.005"},
        {-12.5, "-12.5"},
        {0.0001, "0.0001"},
        {1e-6, "1.0E-06"},
        {3.33e-5, "3.33E-05"},
        {-2e-9, "-2.0E-09"},
        {1e15, "1.0E+15"},
        {123456789012345e3, "1.23456789012345E+17"},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_EQ(quantity_text(value), text);
    }
}

TEST_F(SettingsTest, WholeNumbersAreRounded)
{
    EXPECT_EQ(ask(":TRIG:COUN 2.7"), "+OK");
    EXPECT_EQ(value(":TRIG:COUN?"), "3");
    EXPECT_EQ(ask(":FRSW:STEP 1e3"), "+OK");
    EXPECT_EQ(value(":FRSW:STEP?"), "1000");
}

TEST_F(SettingsTest, TheReferenceOutputHasTwoFrequenciesOnly)
{
    EXPECT_EQ(ask(":ROSC:OUTP:FREQ 50MHz"), "-ERR -224, \"Illegal parameter value\";+OK");
    EXPECT_EQ(value(":ROSC:OUTP:FREQ?"), "10000000");
    EXPECT_EQ(ask(":ROSC:OUTP:FREQ 200MHz"), kOutOfRange);
    EXPECT_EQ(ask(":ROSC:OUTP:FREQ MAX"), "+OK");
    EXPECT_EQ(value(":ROSC:OUTP:FREQ?"), "100000000");
}

TEST_F(SettingsTest, InvalidNumbersAreRefused)
{
    for (const char* text : {"NAN", "INF", "NINF", "UP", "AUTO", "SOON"}) {
        EXPECT_EQ(ask(std::string(":FREQ ") + text), "-ERR -224, \"Illegal parameter value\";+OK") << text;
    }
    EXPECT_EQ(ask(":FREQ 1e400"), kOutOfRange);
    EXPECT_EQ(ask(":FREQ \"1\""), "-ERR -158, \"String data not allowed\";+OK");
    EXPECT_EQ(value(":FREQ?"), "1000000000");
    EXPECT_EQ(ask(":FREQ? SOON"), "-ERR -224, \"Illegal parameter value\";+OK");
    EXPECT_EQ(ask(":FREQ? MAX,MIN"), "-ERR -108, \"Parameter not allowed\";+OK");
}

TEST_F(SettingsTest, TextsHaveAMaximumLengthAndNoSeparator)
{
    const std::string longest(Settings::kMaxText, 'a');
    EXPECT_EQ(ask(":SYST:EMUL:MOD \"" + longest + "\""), "+OK");
    EXPECT_EQ(value(":SYST:EMUL:MOD?"), "\"" + longest + "\"");
    EXPECT_EQ(ask(":SYST:EMUL:MOD \"" + longest + "b\""), "-ERR -223, \"Too much data\";+OK");
    EXPECT_EQ(ask(":SYST:EMUL:MOD \"a;b\""), "-ERR -224, \"Illegal parameter value\";+OK");
    EXPECT_EQ(value(":SYST:EMUL:MOD?"), "\"" + longest + "\"");
    EXPECT_EQ(ask(":SYST:EMUL:MOD X-1"), "+OK");
    EXPECT_EQ(value(":SYST:EMUL:MOD?"), "\"X-1\"");
}

TEST(Model, SetsTheHighestFrequencyAndTheLowestPower)
{
    struct Row {
        const char* model;
        double highest_frequency;
        double lowest_power;
    };
    const Row rows[] = {
        {"OVX6131P", 8e9, -30},  {"OVX2754B", 14e9, -80}, {"OVX3652R", 20e9, -80},
        {"OVX5351B", 40e9, -80}, {"KSR-7061", 8e9, -30},  {"KSR-8053", 40e9, -30},
    };
    for (const Row& row : rows) {
        const auto limits = model_limits(row.model);
        ASSERT_TRUE(limits) << row.model;
        EXPECT_EQ(limits->highest_frequency, row.highest_frequency) << row.model;
        EXPECT_EQ(limits->lowest_power, row.lowest_power) << row.model;
    }
    EXPECT_FALSE(model_limits("OVX9951B"));
    EXPECT_FALSE(model_limits(""));
}

TEST(Model, ItsHighestFrequencyLimitsAllSuchFrequencies)
{
    Identity identity;
    identity.model = "OVX6131B";
    Instrument instrument(identity);
    EXPECT_EQ(instrument.execute(":FREQ? MAX;:FRSW:STAR? MAX;:FRSW:STOP? MAX\r\n"),
              "8000000000;8000000000;8000000000;+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ 8.000001GHz\r\n"), "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(instrument.execute(":LIST:DATA 8.000001GHz,0,1\r\n"),
              "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(instrument.execute(":CORR:FLAT:PAIR 8.000001GHz,0\r\n"),
              "-ERR -222, \"Data out of range\";+OK\r\n");
}

TEST(Model, ItsLowestPowerLimitsAllPowers)
{
    Identity identity;
    identity.model = "OVX6131P";
    Instrument instrument(identity);
    EXPECT_EQ(instrument.execute(":POW? MIN;:PRSW:STAR? MIN;:PRSW:STOP? MIN\r\n"), "-30;-30;-30;+OK\r\n");
    EXPECT_EQ(instrument.execute(":POW -30.1\r\n"), "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(instrument.execute(":LIST:DATA 1GHz,-30.1,1\r\n"), "-ERR -222, \"Data out of range\";+OK\r\n");
}

TEST(Model, WithoutAFamilyIsRejected)
{
    Identity identity;
    identity.model = "X";
    EXPECT_THROW(Instrument{identity}, std::invalid_argument);
}
