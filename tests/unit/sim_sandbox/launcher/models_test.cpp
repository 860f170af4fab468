#include "models.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace orvan_launcher;

TEST(Models, ChannelsFollowTheName)
{
    const std::pair<const char*, int> rows[] = {
        {"OVX2751P", 1}, {"OVX6131P", 1}, {"OVX3651B", 1}, {"OVX3652B", 2}, {"OVX3654B", 4},
        {"OVX5354R", 4}, {"OVX6132R", 2}, {"KSR-7061", 1}, {"KSR-8053", 1},
    };
    for (const auto& [name, channels] : rows) {
        EXPECT_EQ(channels_of_model(name), channels) << name;
    }
}

TEST(Models, UnknownNameHasNoChannels)
{
    for (const char* name : {"", "OVX3653B", "OVX3654P", "ovx3654b", "OVX3654", "OVX3654BB", "KSR-7054"}) {
        EXPECT_FALSE(channels_of_model(name)) << name;
    }
}

TEST(Models, ListNamesEveryModelOnce)
{
    std::istringstream words(list_of_models());
    int count = 0;
    for (std::string name; words >> name; ++count) {
        EXPECT_TRUE(channels_of_model(name)) << name;
        EXPECT_EQ(list_of_models().find(name), list_of_models().rfind(name)) << name;
    }
    EXPECT_EQ(count, 4 + 24 + 5);
}
