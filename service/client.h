#ifndef ORVAN_SERVICE_CLIENT_H
#define ORVAN_SERVICE_CLIENT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace orvan_service {

enum class Protocol : uint8_t { kRaw, kHislip, kVxi11, kLocal };
inline constexpr size_t kProtocols = 4;

/** Whose messages a session has. */
struct Client {
    Protocol protocol = Protocol::kRaw;
    std::string address; /**< with the port; of a local client its process */
    std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
};

} // namespace orvan_service

#endif
