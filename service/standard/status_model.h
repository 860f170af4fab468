#ifndef ORVAN_SERVICE_STATUS_MODEL_H
#define ORVAN_SERVICE_STATUS_MODEL_H

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "standard_reply.h"

namespace orvan_service {

/** Bits of the status byte (IEEE 488.2 11.2, SCPI-99 9). */
enum StatusBit : uint8_t {
    kStatusErrorAvailable = 1 << 2,   /**< EAV: the error queue has an entry */
    kStatusMessageAvailable = 1 << 4, /**< MAV: a response is waiting */
    kStatusEventSummary = 1 << 5,     /**< ESB: an enabled bit of the event status register is set */
    kStatusRequest = 1 << 6           /**< RQS in a serial poll, MSS in "*STB?" */
};

/** Bits of the standard event status register (IEEE 488.2 11.5.1). */
enum EventBit : uint8_t {
    kEventOperationComplete = 1 << 0,
    kEventRequestControl = 1 << 1,
    kEventQueryError = 1 << 2,
    kEventDeviceError = 1 << 3,
    kEventExecutionError = 1 << 4,
    kEventCommandError = 1 << 5,
    kEventUserRequest = 1 << 6,
    kEventPowerOn = 1 << 7
};

/**
 * The status registers and the error queue of one standard session. Any thread.
 *
 * A request for service is reported once each time that an enabled bit of the status byte appears: RQS stays
 * set until a serial poll (IEEE 488.2 11.3).
 */
class StatusModel {
public:
    static constexpr size_t kQueue = 20; /**< entries; the last becomes -350 when more errors come */

    /** @param request called with the status byte at each new request for service, on the thread that caused
     *  it and without a lock held */
    /** @param added called with each error that is queued, or would be if there were room, on the thread that
     *  queues it and without a lock held */
    explicit StatusModel(std::function<void(uint8_t status)> request,
                         std::function<void(const StandardError&)> added = {});

    /** Queues the error and sets its bit in the event status register. */
    void add(StandardError error);
    void add(int number); /**< with the standard's text */
    /** The oldest error; `0,"No error"` if there is none. */
    StandardError take_error();
    size_t errors() const;

    void set_events(uint8_t bits);
    uint8_t take_events(); /**< reads and clears, as "*ESR?" does */

    uint8_t event_enable() const;
    void set_event_enable(uint8_t bits);
    uint8_t service_enable() const;
    void set_service_enable(uint8_t bits); /**< bit 6 is ignored */

    void set_message_available(bool available);
    /** The module's status byte, as last read: its EAV and its summary bits 0, 1, 3 and 7 show in ours. */
    void set_module_status(uint8_t status);

    /** The status byte with MSS, as "*STB?" returns it. */
    uint8_t status_byte() const;
    /** The status byte with RQS, which is cleared. */
    uint8_t serial_poll();

    /** "*CLS": clears the events, the queue and the module's bits as last read. The enable registers and MAV
     *  remain. */
    void clear();

private:
    uint8_t summary() const;
    template <typename Change>
    auto change(Change change);

    const std::function<void(uint8_t)> m_request;
    const std::function<void(const StandardError&)> m_added;
    mutable std::mutex m_mutex; // guards what follows
    std::deque<StandardError> m_queue;
    uint8_t m_events = 0;
    uint8_t m_event_enable = 0;
    uint8_t m_service_enable = 0;
    uint8_t m_module_status = 0;
    bool m_message_available = false;
    bool m_requested = false; // RQS
    uint8_t m_reasons = 0;    // enabled bits that have been reported
};

} // namespace orvan_service

#endif
