#include "change.h"

#include "exchange.h"
#include "failure.h"

namespace orvan_maint {

std::vector<std::string> change_plan(const Identity& identity, const std::vector<Setting>& settings,
                                     const SettingValues& values)
{
    std::vector<std::string> plan = {name_of(identity)};
    for (const Setting& setting : settings) {
        const auto value = values.find(setting.letter);
        if (value != values.end()) {
            plan.push_back("  " + title_of(setting.letter) + ": " + text_of(identity.rows, setting.letter) +
                           " -> " + value->second);
        }
    }
    return plan;
}

void send_rows(const Target& target, std::string_view opcode, const std::vector<RequestRow>& rows,
               std::chrono::milliseconds wait)
{
    HALDE_PACKET request = make_frame(opcode, target.identity.mac);
    put_rows(request, rows);
    if (!ask(*target.link, request, kRequestRowsSize, wait)) {
        throw Failure(kExitUnconfirmed,
                      "the instrument did not answer" + target.link->problem() +
                          "; it may have taken the change or not: check with show after its "
                          "next start");
    }
}

} // namespace orvan_maint
