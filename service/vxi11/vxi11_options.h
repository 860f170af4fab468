#ifndef ORVAN_SERVICE_VXI11_VXI11_OPTIONS_H
#define ORVAN_SERVICE_VXI11_VXI11_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvan_service {

struct Vxi11Options {
    std::string address = "0.0.0.0"; /**< IPv4, as the protocol knows no other */
    uint16_t port = 0;               /**< of the core channel; 0: a free one */
    size_t max_links = 32;
    size_t message_memory = size_t{64} << 20; /**< bytes of all links' messages */
    bool use_rpcbind = true;                  /**< so that clients find the port */
};

} // namespace orvan_service

#endif
