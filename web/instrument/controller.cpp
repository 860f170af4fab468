#include "controller.h"

#include <algorithm>
#include <charconv>
#include <memory>

#include <unistd.h>

namespace orvan_web {
namespace {

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::string own_host_name()
{
    char name[256] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

} // namespace

struct Controller::Question {
    const char* query;
    Take take;
};

void Controller::refresh_all(const std::function<void()>& done)
{
    ask({{"*IDN?", &Controller::take_identity},
         {":SYST:COMM:LAN:HOST?", &Controller::take_hostname},
         {":INT:INF:DEV:ARCH?", &Controller::take_architecture}},
        [this, done = done] { refresh_condition(done); });
}

void Controller::refresh_condition(const std::function<void()>& done)
{
    std::vector<Question> questions{{":SYST:FAN:MODE?", &Controller::take_fan},
                                    {"*TST?", &Controller::take_self_test}};
    if (m_identity.portable) {
        questions.push_back({":SYST:BAT?", &Controller::take_battery});
    }
    ask(questions, done);
}

void Controller::refresh_power_up(const std::function<void()>& done)
{
    ask({{":SYST:POW:SET?", &Controller::take_power_up}}, done);
}

void Controller::ask(const std::vector<Question>& questions, const std::function<void()>& done)
{
    for (const Question& question : questions) {
        const bool last = &question == &questions.back();
        m_link.ask(question.query,
                   [this, take = question.take, done = last ? done : nullptr](const Answer& answer) {
                       if (answer.answered()) {
                           (this->*take)(answer);
                       }
                       if (done) {
                           done();
                       }
                   });
    }
}

void Controller::take_identity(const Answer& answer)
{
    const std::vector<std::string> fields = split(answer.response, ',');
    if (fields.size() == 4) {
        m_identity.manufacturer = fields[0];
        m_identity.model = fields[1];
        m_identity.serial = fields[2];
        m_identity.firmware = fields[3];
    }
}

void Controller::take_hostname(const Answer& answer)
{
    m_identity.hostname = answer.response.empty() ? own_host_name() : answer.response;
}

void Controller::take_architecture(const Answer& answer)
{
    const std::vector<std::string> fields = split(answer.response, ',');
    m_identity.portable = fields.back() == "portable";
}

void Controller::take_fan(const Answer& answer)
{
    m_condition.fan_mode = answer.response;
}

void Controller::take_battery(const Answer& answer)
{
    double percent = 0;
    const char* const end = answer.response.data() + answer.response.size();
    const bool number = std::from_chars(answer.response.data(), end, percent).ec == std::errc();
    m_condition.battery_percent = number ? std::optional(percent) : std::nullopt;
}

void Controller::take_self_test(const Answer& answer)
{
    if (answer.errors.empty()) {
        m_condition.self_test = split(answer.response, ';');
    }
}

void Controller::take_power_up(const Answer& answer)
{
    int setup = 0;
    const char* const end = answer.response.data() + answer.response.size();
    const bool number = std::from_chars(answer.response.data(), end, setup).ec == std::errc();
    m_power_up = number ? std::optional(setup) : std::nullopt;
}

} // namespace orvan_web
