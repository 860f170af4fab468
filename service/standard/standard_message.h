#ifndef ORVAN_SERVICE_STANDARD_MESSAGE_H
#define ORVAN_SERVICE_STANDARD_MESSAGE_H

#include <cstdint>
#include <span>
#include <string>
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
    kErrorCountQ,    /**< :SYSTem:ERRor:COUNt? */
    kSessionErrorsQ  /**< :SYSTem:ERRor:SESSion? */
};

/** A part of a message: one command of the session, or units in a row that are the instrument's. */
struct MessagePart {
    enum class Kind : uint8_t {
        kInstrument, /**< `path` and `text` are a message for the instrument, ended by LF */
        kSession,    /**< `command`; `text` is its parameters */
        kError /**< a unit that must not reach the instrument, since it would wait for its rest: `error` */
    };
    Kind kind;
    SessionCommand command{};
    int error = 0;
    std::string path;     /**< to be written in front of `text`; usually empty */
    std::span<char> text; /**< within the message */
};

/**
 * Cuts one program message into its parts (IEEE 488.2 7.3, SCPI-99 6.2).
 *
 * A unit that relies on the path of one before it gets the path written out if that one is in another part.
 * The text is not copied, as it may be an update of several megabytes: the LF that ends a part is written
 * over what separates it from the next. A query that the instrument answers with a block is a part of its
 * own, since the instrument puts no separator between a block and what follows it.
 *
 * @param message ends with its LF; the parts refer to it
 */
std::vector<MessagePart> cut_message(std::span<char> message);

} // namespace orvan_service

#endif
