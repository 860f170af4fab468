/**
 * Control commands for a running module, one per line.
 *
 *   up | silent | refuse | close | long     fault mode ("drop" and "drop-connection" are "close")
 *   slow [MS]                               delays each reply by MS milliseconds, default 1000
 *   split [MS]                              sends each reply in two pieces, MS milliseconds apart, default 50
 *   update                                  shows the update fault
 *   update up | silent-burn | refuse        sets it (firmware.h)
 *   update silent-stream [N]                from block N on, default 1
 *   update late [MS]                        MS milliseconds, default 2500
 *   temp                                    the temperature, "ok 71.5 held" or "ok 42.13 drifting"
 *   temp C | temp auto                      holds it at C degrees Celsius; auto: lets it drift again
 *   status                                  one line of JSON
 *   requests                                number of requests since the start or `clear`
 *   log [N]                                 the last N requests, default all that are kept
 *   clear                                   clears the requests
 *
 * Replies: "ok", "ok <value>", "error <text>"; `log` returns "ok <n>" and then n lines, oldest first.
 */
#ifndef ORVAN_SIM_MODULE_CONTROL_COMMANDS_H
#define ORVAN_SIM_MODULE_CONTROL_COMMANDS_H

#include <optional>
#include <string>
#include <string_view>

#include "faults.h"
#include "firmware_port.h"
#include "instrument.h"
#include "request_log.h"
#include "scpi_server.h"

namespace sim_module {

class ControlCommands {
public:
    ControlCommands(int channel, Instrument& instrument, Faults& faults, RequestLog& log, ScpiServer& server,
                    const std::optional<FirmwarePort>& firmware_port)
        : m_channel(channel), m_instrument(instrument), m_faults(faults), m_log(log), m_server(server),
          m_firmware_port(firmware_port)
    {
    }

    /** Executes one line, without its line end. Each line of the reply ends in LF. */
    std::string execute(std::string_view line);

private:
    std::string set_fault(FaultMode mode, std::string_view argument);
    std::string set_update_fault(std::string_view arguments);
    std::string set_temperature(std::string_view argument);
    std::string list_requests(std::string_view argument) const;
    std::string status() const;
    std::string images() const;

    int m_channel;
    Instrument& m_instrument;
    Faults& m_faults;
    RequestLog& m_log;
    ScpiServer& m_server;
    const std::optional<FirmwarePort>& m_firmware_port;
};

} // namespace sim_module

#endif
