#include "change.h"
#include "commands.h"
#include "console.h"
#include "exchange.h"
#include "failure.h"
#include "output.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

std::string word_text(uint16_t word)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(word));
    return text;
}

} // namespace

void show_or_change_options(const Options& options, int stop)
{
    const Target target = choose_instrument(options.reach, stop);
    const auto reply =
        ask(*target.link, make_frame(kOpcodeOptions, target.identity.mac), 0, options.reach.wait);
    if (!reply) {
        throw Failure(kExitNoAnswer, "the instrument sends no table of options" + target.link->problem());
    }
    const std::vector<OptionRow> rows = read_options(reply->frame, reply->length);
    if (options.set.empty() && options.clear.empty()) {
        say(options.json ? options_json(rows) : options_table(rows));
        return;
    }
    const std::vector<OptionRow> changed = changed_options(rows, options.set, options.clear);
    std::vector<std::string> plan = {name_of(target.identity)};
    for (size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].value != changed[i].value) {
            plan.push_back("  option " + rows[i].symbol + ": " + std::to_string(rows[i].value) + " -> " +
                           std::to_string(changed[i].value));
        }
    }
    plan.push_back("  word: " + word_text(option_word(rows)) + " -> " + word_text(option_word(changed)));
    agree(plan, options.yes, stop);
    send_rows(target, kOpcodeFactory, {{FLASH_OPTION, wire_options(option_word(changed))}},
              options.reach.wait);
    say("stored; it takes effect at the instrument's next start");
}

} // namespace orvan_maint
