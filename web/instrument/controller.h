#ifndef ORVAN_WEB_CONTROLLER_H
#define ORVAN_WEB_CONTROLLER_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "scpi_link.h"

namespace orvan_web {

/** What the controller says about the instrument. Texts are empty if unknown. */
struct Identity {
    std::string manufacturer;
    std::string model;
    std::string serial;
    std::string firmware;
    std::string hostname;
    bool portable = false; /**< it has a battery */

    bool operator==(const Identity&) const = default;
};

/** State of the controller's own parts. */
struct Condition {
    std::string fan_mode; /**< "AUTO" or "FIXED"; empty if unknown */
    std::optional<double> battery_percent;
    std::optional<std::vector<std::string>> self_test; /**< the failed tests and their number, one a line */

    bool operator==(const Condition&) const = default;
};

/**
 * Asks the controller about the instrument: queries that it answers itself, and that change nothing. Loop's
 * thread.
 */
class Controller {
public:
    explicit Controller(ScpiLink& link) : m_link(link) {}

    const Identity& identity() const { return m_identity; }
    const Condition& condition() const { return m_condition; }
    /** Number of a setup; empty if unknown. */
    std::optional<int> power_up() const { return m_power_up; }

    /** Asks for both, the identity and the condition. @param done called when the last answer is there */
    void refresh_all(const std::function<void()>& done);
    /** Asks for what can change: the condition. */
    void refresh_condition(const std::function<void()>& done);
    /** Asks for the setup that is loaded at power-up. */
    void refresh_power_up(const std::function<void()>& done);

private:
    using Take = void (Controller::*)(const Answer& answer);
    struct Question;

    void ask(const std::vector<Question>& questions, const std::function<void()>& done);
    void take_identity(const Answer& answer);
    void take_hostname(const Answer& answer);
    void take_architecture(const Answer& answer);
    void take_fan(const Answer& answer);
    void take_battery(const Answer& answer);
    void take_self_test(const Answer& answer);
    void take_power_up(const Answer& answer);

    ScpiLink& m_link;
    Identity m_identity;
    Condition m_condition;
    std::optional<int> m_power_up;
};

} // namespace orvan_web

#endif
