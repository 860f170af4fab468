#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvan_sdk/IOrvanDeviceManager.h"

using namespace HaldeElec::Orvan;

namespace {

std::string row_text(const sDevArch_t& row)
{
    char text[128];
    std::snprintf(text, sizeof text, "%s %llu %u %u 0x%04x 0x%04x %d", row.model,
                  static_cast<unsigned long long>(row.maxFrequency), row.channelsNo, row.protocol,
                  row.product, row.vendor, row.devProdType);
    return text;
}

std::vector<std::string> rows_of(const sDevArch_t* table)
{
    std::vector<std::string> rows;
    for (; table->model != nullptr; ++table) {
        rows.push_back(row_text(*table));
    }
    EXPECT_EQ(table->maxFrequency, 0u);
    EXPECT_EQ(table->channelsNo, 0);
    EXPECT_EQ(table->protocol, 0);
    EXPECT_EQ(table->product, 0u);
    EXPECT_EQ(table->vendor, 0u);
    EXPECT_EQ(table->devProdType, 0);
    return rows;
}

TEST(ModelTables, Portable)
{
    EXPECT_EQ(rows_of(g_portableModelsTable), (std::vector<std::string>{
                                                  "OVX2751P 14000000000 1 1 0x2751 0x168c 0",
                                                  "OVX3651P 20000000000 1 1 0x3651 0x168c 0",
                                                  "OVX5351P 40000000000 1 1 0x5351 0x168c 0",
                                                  "OVX6131P 8000000000 1 1 0x6131 0x168c 0",
                                              }));
}

TEST(ModelTables, Benchtop)
{
    EXPECT_EQ(rows_of(g_benchtopModelsTable),
              (std::vector<std::string>{
                  "OVX2751B 14000000000 1 1 0x2701 0x168c 1", "OVX2752B 14000000000 2 1 0x2702 0x168c 1",
                  "OVX2754B 14000000000 4 1 0x2704 0x168c 1", "OVX3651B 20000000000 1 1 0x3601 0x168c 1",
                  "OVX3652B 20000000000 2 1 0x3602 0x168c 1", "OVX3654B 20000000000 4 1 0x3604 0x168c 1",
                  "OVX5351B 40000000000 1 1 0x5301 0x168c 1", "OVX5352B 40000000000 2 1 0x5302 0x168c 1",
                  "OVX5354B 40000000000 4 1 0x5304 0x168c 1", "OVX6131B 8000000000 1 1 0x6101 0x168c 1",
                  "OVX6132B 8000000000 2 1 0x6102 0x168c 1",  "OVX6134B 8000000000 4 1 0x6104 0x168c 1",
                  "OVX2751R 14000000000 1 1 0x27a1 0x168c 1", "OVX2752R 14000000000 2 1 0x27a2 0x168c 1",
                  "OVX2754R 14000000000 4 1 0x27a4 0x168c 1", "OVX3651R 20000000000 1 1 0x36a1 0x168c 1",
                  "OVX3652R 20000000000 2 1 0x36a2 0x168c 1", "OVX3654R 20000000000 4 1 0x36a4 0x168c 1",
                  "OVX5351R 40000000000 1 1 0x53a1 0x168c 1", "OVX5352R 40000000000 2 1 0x53a2 0x168c 1",
                  "OVX5354R 40000000000 4 1 0x53a4 0x168c 1", "OVX6131R 8000000000 1 1 0x61a1 0x168c 1",
                  "OVX6132R 8000000000 2 1 0x61a2 0x168c 1",  "OVX6134R 8000000000 4 1 0x61a4 0x168c 1",
              }));
}

TEST(ModelTables, ThirdPlatform)
{
    EXPECT_EQ(rows_of(g_ksr7000ModelsTable), (std::vector<std::string>{
                                                 "KSR-7061 8000000000 1 1 0x7061 0xb001 2",
                                                 "KSR-7036 20000000000 1 1 0x7036 0xb001 2",
                                                 "KSR-7053 40000000000 1 1 0x7053 0xb001 2",
                                                 "KSR-8036 20000000000 1 1 0x8036 0xb001 2",
                                                 "KSR-8053 40000000000 1 1 0x8053 0xb001 2",
                                             }));
}

TEST(ModelTables, ABenchtopModelsDigitIsItsNumberOfChannels)
{
    for (const sDevArch_t* row = g_benchtopModelsTable; row->model != nullptr; ++row) {
        EXPECT_EQ(row->model[6] - '0', row->channelsNo) << row->model;
        EXPECT_EQ(row->product & 0xf, row->channelsNo) << row->model;
    }
}

TEST(ModelTables, KindsOfDevices)
{
    EXPECT_EQ(PortableDevice, 0);
    EXPECT_EQ(BenchtopDevice, 1);
    EXPECT_EQ(Ksr7000Device, 2);
    EXPECT_EQ(InvalidDevice, 3);
}

} // namespace
