/**
 * The instrument behind the SCPI port: one set of settings, one error queue, one set of status registers,
 * whichever connection a request comes on.
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
    /** Longest reply in bytes, line end included: what a controller reads of one. */
    static constexpr size_t kMaxReply = 4096;

    static constexpr size_t kErrorQueueLength = 32;

    /** @throws std::invalid_argument for a model that is none of the family */
    explicit Instrument(Identity identity, const Temperature& temperature = Temperature());
    ~Instrument() override;

    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    /**
     * The results and errors of the request in their order, ";" between them, then ";+OK" ("+OK" alone
     * when there are none) and CR LF. An error is `-ERR <number>, "<text>"`.
     *
     * The "+OK" says that the reply is complete, and a refused request has it too: it keeps a reply one
     * line for a controller that takes off everything from the last "+OK" on. A reply past kMaxReply
     * gives way to error -223.
     */
    std::string execute(std::string_view request) override;

    /** Error -363, as a reply. */
    std::string refuse_overrun() override;

    std::optional<std::chrono::milliseconds> reply_delay() const override;

    /** "*RST": settings and tables in memory; files, registers and the error queue stay. */
    void reset();

    const Identity& identity() const { return m_identity; }
    Settings& settings() { return m_settings; }
    DataStore& store() { return m_store; }
    Temperature& temperature() { return m_temperature; }
    const Temperature& temperature() const { return m_temperature; }

    Firmware& firmware() { return m_firmware; }

    /** Takes an image of a request, or leaves it, as the update faults say. @return false to refuse it */
    bool take_image(ImageKind kind, std::string_view bytes);

    /** What a restart does beyond the instrument; called within the request that asks for it. */
    void set_restart_action(std::function<void()> action) { m_restart_action = std::move(action); }

    /** Of ":SYSTem:RESTart". The reply still goes out. */
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
    bool m_brought_image = false; // the request at work
    std::function<void()> m_restart_action;
    uint64_t m_restarts = 0;
    uint64_t m_triggers = 0;
    std::string m_clock;

    scpi_t m_context;
    std::array<scpi_error_t, kErrorQueueLength> m_error_queue{};
    std::string m_request; // the request at work; the parser writes in it
    std::string m_reply;   // what the request has given so far
};

/** The instrument whose command the handler is. */
Instrument& instrument_of(scpi_t* context);

} // namespace sim_module

#endif
