#include <string>

#include "instrument_fixture.h"
#include "module/data_store.h"

using namespace sim_module;

namespace {

const char kNotFound[] = "-ERR -256, \"File name not found\";+OK";
const char kIllegal[] = "-ERR -224, \"Illegal parameter value\";+OK";
const char kOutOfRange[] = "-ERR -222, \"Data out of range\";+OK";

using Lists = InstrumentTest;
using Patterns = InstrumentTest;
using Flatness = InstrumentTest;
using Files = InstrumentTest;

} // namespace

TEST_F(Lists, DataIsStoredInTheDefinedList)
{
    EXPECT_EQ(value(":LIST:DEF?"), "\"\"");
    EXPECT_EQ(ask(":LIST:DEF \"first\""), "+OK");
    EXPECT_EQ(ask(":LIST:DATA 1GHz,-10dBm,5ms,2GHz,-11,6ms"), "+OK");
    EXPECT_EQ(value(":LIST:DEF?"), "\"first\"");
    const DataStore::Table expected = {1e9, -10, 0.005, 2e9, -11, 0.006};
    EXPECT_EQ(instrument.store().table(TableKind::kList), expected);

    EXPECT_EQ(ask(":LIST:DEF \"second\""), "+OK");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 0U);
    EXPECT_EQ(ask(":LIST:DEF \"first\""), "+OK");
    EXPECT_EQ(instrument.store().table(TableKind::kList), expected);
}

TEST_F(Lists, DataReplacesThePreviousRows)
{
    ask(":LIST:DATA 1GHz,-10,1,2GHz,-10,1");
    EXPECT_EQ(ask(":LIST:DATA 3GHz,-10,1"), "+OK");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 1U);
}

TEST_F(Lists, RefusedDataChangesNothing)
{
    ask(":LIST:DATA 1GHz,-10,1");
    const DataStore::Table before = instrument.store().table(TableKind::kList);
    EXPECT_EQ(ask(":LIST:DATA 2GHz,-10,1,3GHz,-10"), "-ERR -109, \"Missing parameter\";+OK");
    EXPECT_EQ(ask(":LIST:DATA 2GHz,-10,1,3GHz,-10,1,"), "-ERR -102, \"Syntax error\";+OK");
    EXPECT_EQ(ask(":LIST:DATA 2GHz,-10,1,3GHz,21,1"), kOutOfRange);
    EXPECT_EQ(ask(":LIST:DATA 2GHz,-10,99us"), kOutOfRange);
    EXPECT_EQ(ask(":LIST:DATA 7999,-10,1"), kOutOfRange);
    EXPECT_EQ(ask(":LIST:DATA 2GHz,-10,1Hz"), "-ERR -131, \"Invalid suffix\";+OK");
    EXPECT_EQ(instrument.store().table(TableKind::kList), before);
}

TEST_F(Lists, TheLongestListFitsButNotOneRowMore)
{
    std::string data = ":LIST:DATA 1GHz,0,1";
    for (int row = 1; row < kMaxListRows; ++row) {
        data += ",1GHz,0,1";
    }
    EXPECT_EQ(ask(data), "+OK");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), static_cast<size_t>(kMaxListRows));
    EXPECT_EQ(ask(data + ",1GHz,0,1"), "-ERR -223, \"Too much data\";+OK");
}

TEST_F(Lists, ReverseReversesTheRows)
{
    ask(":LIST:DATA 1GHz,-1,1,2GHz,-2,2,3GHz,-3,3");
    EXPECT_EQ(ask(":LIST:REV"), "+OK");
    const DataStore::Table expected = {3e9, -3, 3, 2e9, -2, 2, 1e9, -1, 1};
    EXPECT_EQ(instrument.store().table(TableKind::kList), expected);
}

TEST_F(Lists, ADeletedListIsRemovedAndNoLongerSelected)
{
    ask(":LIST:DEF \"a\";:LIST:DATA 1GHz,0,1;:LIST:DEF \"b\"");
    EXPECT_EQ(ask(":LIST:DEL \"a\""), "+OK");
    EXPECT_EQ(value(":LIST:DEF?"), "\"b\"");
    EXPECT_EQ(ask(":LIST:DEL:NAME \"b\""), "+OK");
    EXPECT_EQ(value(":LIST:DEF?"), "\"\"");
    EXPECT_EQ(ask(":LIST:DEL \"a\""), kIllegal);
    ask(":LIST:DEF \"a\"");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 0U);
}

TEST_F(Lists, DeleteAllAndResetRemoveThemAll)
{
    for (const char* command : {":LIST:DEL:ALL", "*RST"}) {
        ask(":LIST:DEF \"a\";:LIST:DATA 1GHz,0,1");
        EXPECT_EQ(ask(command), "+OK");
        EXPECT_EQ(value(":LIST:DEF?"), "\"\"") << command;
        EXPECT_EQ(ask(":LIST:DEL \"a\""), kIllegal) << command;
    }
}

TEST_F(Lists, HaveAMaximumNumber)
{
    for (size_t i = 0; i < DataStore::kMaxTables; ++i) {
        EXPECT_EQ(ask(":LIST:DEF \"n" + std::to_string(i) + "\""), "+OK");
    }
    EXPECT_EQ(ask(":LIST:DEF \"more\""), "-ERR -225, \"Out of memory\";+OK");
    EXPECT_EQ(value(":LIST:DEF?"), "\"n49\"");
    EXPECT_EQ(ask(":LIST:DEF \"n0\""), "+OK");
}

TEST_F(Lists, AnExtraParameterChangesNothing)
{
    const char kTooMany[] = "-ERR -108, \"Parameter not allowed\";+OK";
    ask(":LIST:DEF \"a\";:LIST:DATA 1GHz,0,1,2GHz,0,1;:CORR:FLAT:DATA 1GHz,1;:SYST:FILE:STOR:LIST \"f\"");
    const DataStore::Table before = instrument.store().table(TableKind::kList);
    for (const char* command : {":LIST:REV 1", ":LIST:DEL:ALL 1", ":LIST:DEL \"a\",1", ":LIST:DEF \"b\",1",
                                ":CORR:FLAT:PRES 1", ":CORR:FLAT:POIN 0,1", ":SYST:FILE:DEL:ALL 1",
                                ":SYST:FILE:DEL:FILE \"f\",1", ":SYST:FILE:STOR:LIST \"g\",1"}) {
        EXPECT_EQ(ask(command), kTooMany) << command;
    }
    EXPECT_EQ(value(":LIST:DEF?"), "\"a\"");
    EXPECT_EQ(instrument.store().table(TableKind::kList), before);
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "1");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"f\"");
}

TEST_F(Patterns, AreSeparateFromTheLists)
{
    ask(":LIST:DEF \"x\";:PATT:DEF \"x\"");
    EXPECT_EQ(ask(":PATT:DATA 1us,2us,3us,4us"), "+OK");
    EXPECT_EQ(instrument.store().rows(TableKind::kPattern), 2U);
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 0U);
    EXPECT_EQ(ask(":PATT:DATA 99ns,1us"), kOutOfRange);
    EXPECT_EQ(ask(":PATT:DATA 1us"), "-ERR -109, \"Missing parameter\";+OK");
    EXPECT_EQ(ask(":PATT:DEL:ALL"), "+OK");
    EXPECT_EQ(value(":PATT:DEF?"), "\"\"");
    EXPECT_EQ(value(":LIST:DEF?"), "\"x\"");
}

TEST_F(Flatness, PairsAreSortedByFrequency)
{
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "0");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 2GHz,0.5"), "+OK");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 1GHz,-1.5 DB"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "2");
    EXPECT_EQ(value(":CORR:FLAT:PAIR? 1"), "1000000000,-1.5");
    EXPECT_EQ(value(":CORR:FLAT:PAIR? 2"), "2000000000,0.5");
    EXPECT_EQ(value(":CORR:FLAT:PAIR?"), "2000000000,0.5");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 1GHz,3"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "2");
    EXPECT_EQ(value(":CORR:FLAT:PAIR? 1"), "1000000000,3");
}

TEST_F(Flatness, AMissingPairIsOutOfRange)
{
    EXPECT_EQ(ask(":CORR:FLAT:PAIR?"), kOutOfRange);
    ask(":CORR:FLAT:PAIR 1GHz,1");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR? 0"), kOutOfRange);
    EXPECT_EQ(ask(":CORR:FLAT:PAIR? 2"), kOutOfRange);
    EXPECT_EQ(ask(":CORR:FLAT:PAIR? 1,1"), "-ERR -108, \"Parameter not allowed\";+OK");
}

TEST_F(Flatness, DataReplacesAllPairs)
{
    ask(":CORR:FLAT:PAIR 5GHz,1");
    EXPECT_EQ(ask(":CORR:FLAT:DATA 3GHz,3,1GHz,1,3GHz,4"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "2");
    EXPECT_EQ(value(":CORR:FLAT:PAIR? 2"), "3000000000,4");
    EXPECT_EQ(ask(":CORR:FLAT:DATA 3GHz"), "-ERR -109, \"Missing parameter\";+OK");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 3GHz,41"), kOutOfRange);
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 3GHz,1,1"), "-ERR -108, \"Parameter not allowed\";+OK");
    EXPECT_EQ(value(":CORR:FLAT:PAIR? 2"), "3000000000,4");
}

TEST_F(Flatness, PointsKeepsTheFirstPairsAndPresetRemovesAll)
{
    ask(":CORR:FLAT:DATA 1GHz,1,2GHz,2,3GHz,3");
    EXPECT_EQ(ask(":CORR:FLAT:POIN 4"), kOutOfRange);
    EXPECT_EQ(ask(":CORR:FLAT:POIN 2"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:PAIR?"), "2000000000,2");
    EXPECT_EQ(ask(":CORR:FLAT:PRES"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "0");
}

TEST_F(Flatness, APairBeyondTheLongestTableIsRefused)
{
    const size_t most = table_shape(TableKind::kUserCorrection).max_rows;
    std::string data = ":CORR:FLAT:DATA 1000000,1";
    for (size_t i = 1; i < most; ++i) {
        data += "," + std::to_string(1000000 + i) + ",1";
    }
    EXPECT_EQ(ask(data), "+OK");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 5GHz,1"), "-ERR -223, \"Too much data\";+OK");
    EXPECT_EQ(ask(":CORR:FLAT:PAIR 1000000,2"), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), std::to_string(most));
}

TEST_F(Files, AreListedSizedLoadedAndRemoved)
{
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"\"");
    ask(":LIST:DATA 1GHz,-10,1,2GHz,-11,1");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"zz\""), "+OK");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"aa\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"aa\",\"zz\"");
    EXPECT_EQ(value(":SYST:FILE:CAT:PATT?"), "\"\"");
    EXPECT_EQ(value(":SYST:FILE:SIZE? \"aa\""), "48");

    ask("*RST");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 0U);
    EXPECT_EQ(ask(":SYST:FILE:LOAD:LIST \"aa\""), "+OK");
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 2U);
    EXPECT_EQ(value(":LIST:DEF?"), "\"aa\"");

    EXPECT_EQ(ask(":SYST:FILE:DEL:LIST \"aa\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"zz\"");
    EXPECT_EQ(ask(":SYST:FILE:LOAD:LIST \"aa\""), kNotFound);
    EXPECT_EQ(ask(":SYST:FILE:DEL:LIST \"aa\""), kNotFound);
    EXPECT_EQ(ask(":SYST:FILE:SIZE? \"aa\""), kNotFound);
    EXPECT_EQ(instrument.store().rows(TableKind::kList), 2U);
}

TEST_F(Files, HaveANameSpaceForEachKind)
{
    ask(":LIST:DATA 1GHz,-10,1;:PATT:DATA 1us,1us,1us,1us;:CORR:FLAT:DATA 1GHz,1,2GHz,2,3GHz,3");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"n\";:SYST:FILE:STOR:PATT \"n\";:SYST:FILE:STOR:UCOR \"n\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:SIZE? \"n\""), "24");
    EXPECT_EQ(ask(":SYST:FILE:DEL:LIST \"n\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:SIZE? \"n\""), "32");
    EXPECT_EQ(ask(":SYST:FILE:DEL:PATT \"n\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:SIZE? \"n\""), "48");
    ask(":CORR:FLAT:PRES");
    EXPECT_EQ(ask(":SYST:FILE:LOAD:UCOR \"n\""), "+OK");
    EXPECT_EQ(value(":CORR:FLAT:POIN?"), "3");
    EXPECT_EQ(value(":SYST:FILE:CAT:UCOR?"), "\"n\"");
    EXPECT_EQ(ask(":SYST:FILE:DEL:UCOR \"n\""), "+OK");
    EXPECT_EQ(ask(":SYST:FILE:DEL:FILE \"n\""), kNotFound);
}

TEST_F(Files, DeleteFileRemovesEveryKindAndDeleteAllEveryName)
{
    const std::string store_all =
        ":SYST:FILE:STOR:LIST \"n\";:SYST:FILE:STOR:PATT \"n\";:SYST:FILE:STOR:PATT \"m\"";
    EXPECT_EQ(ask(store_all), "+OK");
    EXPECT_EQ(ask(":SYST:FILE:DEL:FILE \"n\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?;:SYST:FILE:CAT:PATT?"), "\"\";\"m\"");
    EXPECT_EQ(ask(store_all), "+OK");
    EXPECT_EQ(ask(":SYST:FILE:DEL:ALL"), "+OK");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?;:SYST:FILE:CAT:PATT?"), "\"\";\"\"");
}

TEST_F(Files, ANameHasAMaximumLengthAndIsNotEmpty)
{
    const std::string longest(DataStore::kMaxName, 'n');
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"" + longest + "\""), "+OK");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"" + longest + "n\""), "-ERR -223, \"Too much data\";+OK");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"\""), "-ERR -257, \"File name error\";+OK");
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"a;b\""), kIllegal);
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"a\tb\""), kIllegal);
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"" + longest + "\"");
}

TEST_F(Files, AFullCatalogFitsAReply)
{
    for (size_t i = 0; i < DataStore::kMaxTables; ++i) {
        std::string name = std::to_string(i);
        name += std::string(DataStore::kMaxName - name.size(), 'n');
        EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"" + name + "\""), "+OK");
    }
    EXPECT_EQ(ask(":SYST:FILE:STOR:LIST \"more\""), "-ERR -254, \"Media full\";+OK");
    EXPECT_EQ(ask(":SYST:FILE:STOR:PATT \"more\""), "+OK");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?").size(), DataStore::kMaxTables * (DataStore::kMaxName + 3) - 1);
}
