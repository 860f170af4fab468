#include <sstream>

#include <gtest/gtest.h>

#include "models.h"

using namespace orvan_launcher;

TEST(Models, ChannelsAndPlatformFollowTheName)
{
    struct Row {
        const char* name;
        int channels;
        const char* platform;
    };
    const Row rows[] = {
        {"OVX2751P", 1, "portable"}, {"OVX6131P", 1, "portable"}, {"OVX3651B", 1, "benchtop"},
        {"OVX3652B", 2, "benchtop"}, {"OVX3654B", 4, "benchtop"}, {"OVX5354R", 4, "benchtop"},
        {"OVX6132R", 2, "benchtop"}, {"KSR-7061", 1, "ksr7000"},  {"KSR-8053", 1, "ksr7000"},
    };
    for (const Row& row : rows) {
        const auto model = find_model(row.name);
        ASSERT_TRUE(model) << row.name;
        EXPECT_EQ(model->channels, row.channels) << row.name;
        EXPECT_STREQ(model->platform, row.platform) << row.name;
    }
}

TEST(Models, AnUnknownNameIsNoModel)
{
    for (const char* name : {"", "OVX3653B", "OVX3654P", "ovx3654b", "OVX3654", "OVX3654BB", "KSR-7054"}) {
        EXPECT_FALSE(find_model(name)) << name;
    }
}

TEST(Models, ListNamesEveryModelOnce)
{
    std::istringstream words(list_of_models());
    int count = 0;
    for (std::string name; words >> name; ++count) {
        EXPECT_TRUE(find_model(name)) << name;
        EXPECT_EQ(list_of_models().find(name), list_of_models().rfind(name)) << name;
    }
    EXPECT_EQ(count, 4 + 24 + 5);
}
