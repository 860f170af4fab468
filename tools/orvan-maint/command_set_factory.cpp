#include "change.h"
#include "commands.h"
#include "console.h"
#include "models.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

void set_factory(const Options& options, int stop)
{
    const Target target = choose_instrument(options.reach, stop);
    std::vector<std::string> plan = change_plan(target.identity, kFactorySettings, options.settings);
    const auto model = options.settings.find(FLASH_MODELNAME);
    if (model != options.settings.end() && platform_of_model(model->second) == nullptr) {
        plan.push_back("  " + model->second +
                       " is no model that is known here; an instrument that does not know "
                       "it either is of no use");
    }
    agree(plan, options.yes, stop);

    std::vector<RequestRow> rows;
    for (const auto& [letter, value] : options.settings) {
        rows.push_back({letter, value});
    }
    send_rows(target, kOpcodeFactory, rows, options.reach.wait);
    say("stored; it takes effect at the instrument's next start");
}

} // namespace orvan_maint
