// What is announced: names, services, TXT records.
#include <gtest/gtest.h>

#include "announce/announcement.h"

using namespace orvan_web;

namespace {

Announcement announcement()
{
    return {"Halde Electronics Ltd.", "OVX3654B", "100001", "1.19.145", "bench-4", 80, 5025, 4880, 111};
}

} // namespace

TEST(Announcement, IsNamedAfterModelAndSerialNumber)
{
    EXPECT_EQ(instance_name(announcement()), "OVX3654B-100001");
}

TEST(Announcement, AnIncompleteIdentityHasANameToo)
{
    Announcement partial = announcement();
    partial.serial.clear();
    EXPECT_EQ(instance_name(partial), "OVX3654B");
    partial.model.clear();
    partial.serial = "100001";
    EXPECT_EQ(instance_name(partial), "100001");
    EXPECT_EQ(instance_name({}), "instrument");
}

TEST(Announcement, ANameFitsALabelAndIsPrintable)
{
    Announcement odd = announcement();
    odd.serial = "\xff\x01 1" + std::string(100, '7');
    EXPECT_EQ(instance_name(odd), "OVX3654B-?? 1" + std::string(50, '7'));
}

TEST(Announcement, EveryPortThatIsServedHasItsServices)
{
    const std::vector<AnnouncedService> all = {{"_lxi._tcp", 80},
                                               {"_http._tcp", 80},
                                               {"_scpi-raw._tcp", 5025},
                                               {"_hislip._tcp", 4880},
                                               {"_vxi-11._tcp", 111}};
    EXPECT_EQ(announced_services(announcement()), all);
    Announcement fewer = announcement();
    fewer.hislip_port = 0;
    fewer.http_port = 0;
    const std::vector<AnnouncedService> rest = {{"_scpi-raw._tcp", 5025}, {"_vxi-11._tcp", 111}};
    EXPECT_EQ(announced_services(fewer), rest);
}

TEST(Announcement, TheTxtRecordBeginsWithItsVersionAndHasTheIdentity)
{
    const std::vector<std::string> expected = {"txtvers=1", "Manufacturer=Halde Electronics Ltd.",
                                               "Model=OVX3654B", "SerialNumber=100001",
                                               "FirmwareVersion=1.19.145"};
    EXPECT_EQ(txt_record(announcement()), expected);
}

TEST(Announcement, ALongValueIsCutToTheLargestString)
{
    Announcement odd = announcement();
    odd.serial = std::string(1000, 's');
    EXPECT_EQ(txt_record(odd)[3], "SerialNumber=" + std::string(242, 's'));
}
