/**
 * What an instrument announces by DNS-based service discovery (RFC 6763), with the services and TXT records
 * of LXI 1.5, 10.4.
 */
#ifndef ORVAN_WEB_ANNOUNCEMENT_H
#define ORVAN_WEB_ANNOUNCEMENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace orvan_web {

/** The identity as in the response to *IDN?, and the TCP ports served; 0: not served. */
struct Announcement {
    std::string manufacturer;
    std::string model;
    std::string serial;
    std::string firmware;
    std::string host_name; /**< of the machine, without domain; empty leaves what avahi has */
    uint16_t http_port = 0;
    uint16_t raw_port = 0;
    uint16_t hislip_port = 0;
    uint16_t vxi11_port = 0; /**< of the port mapper, 111 */

    bool operator==(const Announcement&) const = default;
};

/** One service record. */
struct AnnouncedService {
    std::string type; /**< "_lxi._tcp" */
    uint16_t port;

    bool operator==(const AnnouncedService&) const = default;
};

/**
 * The instance name "MODEL-SERIAL", the same for all services: at most 63 bytes, printable ASCII; any other
 * byte is replaced by a question mark.
 */
std::string instance_name(const Announcement& announcement);

/** The services that have a port, in a fixed order. */
std::vector<AnnouncedService> announced_services(const Announcement& announcement);

/** The TXT record of every service: strings "KEY=VALUE" of at most 255 bytes, longer values cut. */
std::vector<std::string> txt_record(const Announcement& announcement);

} // namespace orvan_web

#endif
