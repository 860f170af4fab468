/**
 * The instrument behind the SCPI port: one set of settings, one error queue, one set of status registers,
 * shared by all connections.
 */
#ifndef ORVAN_SIM_MODULE_INSTRUMENT_H
#define ORVAN_SIM_MODULE_INSTRUMENT_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "data_store.h"
#include "firmware.h"
#include "model.h"
#include "scpi/types.h"
#include "scpi_server.h"
#include "settings.h"
#include "temperature.h"

namespace sim_module {

class Instrument : public RequestExecutor {
public:
    /** Longest reply in bytes, line end included: as much as a controller reads. */
    static constexpr size_t kMaxReply = 4096;

    static constexpr size_t kErrorQueueLength = 32;

    /** @throws std::invalid_argument for an unknown model */
    explicit Instrument(Identity identity, const Temperature& temperature = Temperature());
    ~Instrument() override;

    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    /**
     * Returns the results and errors of the request in order, separated by ";", then ";+OK" ("+OK" alone
     * when there are none) and CR LF. An error is `-ERR <number>, "<text>"`.
     *
     * "+OK" marks the reply as complete, and a refused request has it too: a controller cuts the reply at the
     * last "+OK". A reply longer than kMaxReply is replaced by error -223.
     */
    std::string execute(std::string_view request) override;

    /** Error -363, as a reply. */
    std::string refuse_overrun() override;

    std::optional<std::chrono::milliseconds> reply_delay() const override;

    /** "*RST": resets settings and tables in memory; files, registers and the error queue are kept. */
    void reset();

    const Identity& identity() const { return m_identity; }
    Settings& settings() { return m_settings; }
    DataStore& store() { return m_store; }
    Temperature& temperature() { return m_temperature; }
    const Temperature& temperature() const { return m_temperature; }

    Firmware& firmware() { return m_firmware; }

    /** Stores the image of a request, unless an update fault prevents it. @return false to refuse it */
    bool take_image(ImageKind kind, std::string_view bytes);

    /** Called for a restart, within the request, to do what lies outside the instrument. */
    void set_restart_action(std::function<void()> action) { m_restart_action = std::move(action); }

    /** Of ":SYSTem:RESTart". The reply is still sent. */
    void restart();
    uint64_t restarts() const { return m_restarts; }

    /** Counts a trigger of "*TRG". */
    void trigger() { ++m_triggers; }
    uint64_t triggers() const { return m_triggers; }

    /** The date and time of ":SYSTem:CLOCk", ISO 8601; empty until it was set. */
    void set_clock(std::string clock) { m_clock = std::move(clock); }
    const std::string& clock() const { return m_clock; }

private:
    static size_t write(scpi_t* context, const char* data, size_t len);
    static int error(scpi_t* context, int_fast16_t number);
    static scpi_result_t reset_callback(scpi_t* context);

    void add_field(std::string_view field);
    std::string finish_reply();

    static const scpi_interface_t kInterface;

    Identity m_identity;
    Settings m_settings;
    DataStore m_store;
    Temperature m_temperature;
    Firmware m_firmware;
    bool m_brought_image = false; // in the current request
    std::function<void()> m_restart_action;
    uint64_t m_restarts = 0;
    uint64_t m_triggers = 0;
    std::string m_clock;

    scpi_t m_context;
    std::array<scpi_error_t, kErrorQueueLength> m_error_queue{};
    std::string m_request; // the current request; the parser modifies it
    std::string m_reply;   // its reply so far
};

/** The instrument whose command the handler is. */
Instrument& instrument_of(scpi_t* context);

} // namespace sim_module

#endif
