#ifndef ORVAN_SERVICE_HISLIP_FRAME_H
#define ORVAN_SERVICE_HISLIP_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace orvan_service::hislip {

/** Message types (IVI-6.1, table of message type values). */
enum class Type : uint8_t {
    kInitialize = 0,
    kInitializeResponse = 1,
    kFatalError = 2,
    kError = 3,
    kAsyncLock = 4,
    kAsyncLockResponse = 5,
    kData = 6,
    kDataEnd = 7,
    kDeviceClearComplete = 8,
    kDeviceClearAcknowledge = 9,
    kAsyncRemoteLocalControl = 10,
    kAsyncRemoteLocalResponse = 11,
    kTrigger = 12,
    kInterrupted = 13,
    kAsyncInterrupted = 14,
    kAsyncMaximumMessageSize = 15,
    kAsyncMaximumMessageSizeResponse = 16,
    kAsyncInitialize = 17,
    kAsyncInitializeResponse = 18,
    kAsyncDeviceClear = 19,
    kAsyncServiceRequest = 20,
    kAsyncStatusQuery = 21,
    kAsyncStatusResponse = 22,
    kAsyncDeviceClearAcknowledge = 23,
    kAsyncLockInfo = 24,
    kAsyncLockInfoResponse = 25
    // 26 to 38 belong to secure connections, which are not supported; 128 and up are vendors'.
};
inline constexpr uint8_t kFirstVendorType = 128;

/** Control codes of FatalError, after which the connection is closed. */
enum class Fatal : uint8_t {
    kUnidentified = 0,
    kBadHeader = 1,
    kChannelMissing = 2,
    kBadInitialization = 3,
    kTooManyClients = 4
};

/** Control codes of Error; the message that caused it is ignored. */
enum class Fault : uint8_t {
    kUnidentified = 0,
    kUnknownType = 1,
    kUnknownControlCode = 2,
    kUnknownVendorType = 3,
    kTooLarge = 4
};

/** Bytes of a header: "HS", type, control code, parameter, length, big-endian. */
inline constexpr size_t kHeaderSize = 16;

struct Header {
    Type type;
    uint8_t control = 0;
    uint32_t parameter = 0;
    uint64_t length = 0; /**< bytes of payload that follow */

    bool operator==(const Header&) const = default;
};

/** Appends a message to `out`; `header.length` is taken from the payload. */
void append_frame(std::string& out, Header header, std::string_view payload = {});

/** The header in the first kHeaderSize bytes of `bytes`; empty without the prologue "HS". */
std::optional<Header> decode_header(std::span<const char> bytes);

/** 64-bit big-endian payload of a maximum message size. */
std::string encode_size(uint64_t size);
uint64_t decode_size(std::string_view payload);

} // namespace orvan_service::hislip

#endif
