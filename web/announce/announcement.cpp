#include "announce/announcement.h"

#include <algorithm>

namespace orvan_web {

namespace {

constexpr size_t kMostLabel = 63;   /**< RFC 1035 2.3.4 */
constexpr size_t kMostString = 255; /**< the same */

struct TypeRow {
    const char* type;
    uint16_t Announcement::*port;
};

constexpr TypeRow kTypes[] = {
    {"_lxi._tcp", &Announcement::http_port},     {"_http._tcp", &Announcement::http_port},
    {"_scpi-raw._tcp", &Announcement::raw_port}, {"_hislip._tcp", &Announcement::hislip_port},
    {"_vxi-11._tcp", &Announcement::vxi11_port},
};

struct TextRow {
    const char* key;
    std::string Announcement::*value;
};

constexpr TextRow kTexts[] = {
    {"Manufacturer=", &Announcement::manufacturer},
    {"Model=", &Announcement::model},
    {"SerialNumber=", &Announcement::serial},
    {"FirmwareVersion=", &Announcement::firmware},
};

} // namespace

std::string instance_name(const Announcement& announcement)
{
    std::string name = announcement.model;
    if (!announcement.serial.empty()) {
        name += (name.empty() ? "" : "-") + announcement.serial;
    }
    if (name.empty()) {
        name = "instrument";
    }
    std::ranges::replace_if(
        name, [](char byte) { return byte < ' ' || byte > '~'; }, '?');
    return name.substr(0, kMostLabel);
}

std::vector<AnnouncedService> announced_services(const Announcement& announcement)
{
    std::vector<AnnouncedService> services;
    for (const TypeRow& row : kTypes) {
        if (announcement.*row.port != 0) {
            services.push_back({row.type, announcement.*row.port});
        }
    }
    return services;
}

std::vector<std::string> txt_record(const Announcement& announcement)
{
    std::vector<std::string> strings = {"txtvers=1"};
    for (const TextRow& row : kTexts) {
        strings.push_back((row.key + announcement.*row.value).substr(0, kMostString));
    }
    return strings;
}

} // namespace orvan_web
