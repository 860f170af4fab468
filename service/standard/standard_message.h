#ifndef ORVAN_SERVICE_STANDARD_MESSAGE_H
#define ORVAN_SERVICE_STANDARD_MESSAGE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvan_service {

/** Commands that a standard session answers itself. */
enum class SessionCommand : uint8_t {
    kClear,          /**< *CLS */
    kEventEnable,    /**< *ESE */
    kEventEnableQ,   /**< *ESE? */
    kEventStatusQ,   /**< *ESR? */
    kComplete,       /**< *OPC */
    kCompleteQ,      /**< *OPC? */
    kServiceEnable,  /**< *SRE */
    kServiceEnableQ, /**< *SRE? */
    kStatusByteQ,    /**< *STB? */
    kWait,           /**< *WAI */
    kErrorQ,         /**< :SYSTem:ERRor[:NEXT]? */
    kErrorCountQ     /**< :SYSTem:ERRor:COUNt? */
};

/** A part of a message: one command of the session, or units in a row that are the instrument's. */
struct MessagePart {
    enum class Kind : uint8_t {
        kInstrument, /**< `text` is a message for the instrument, ended by LF */
        kSession,    /**< `command`; `text` is its parameters */
        kError /**< a unit that must not reach the instrument, since it would wait for its rest: `error` */
    };
    Kind kind;
    SessionCommand command{};
    int error = 0;
    std::string text;
};

/**
 * Cuts one program message into its parts (IEEE 488.2 7.3, SCPI-99 6.2).
 *
 * A unit that relies on the path of one before it gets the path written out if that one is in another part.
 * A query that the instrument answers with a block is a part of its own, since the instrument puts no
 * separator between a block and what follows it.
 *
 * @param message with or without its LF; only the last byte may be a LF that ends it
 */
std::vector<MessagePart> cut_message(std::string_view message);

} // namespace orvan_service

#endif
