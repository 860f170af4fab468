#include <algorithm>
#include <utility>

#include "blocks.h"
#include "commands.h"
#include "console.h"
#include "failure.h"
#include "models.h"
#include "module_stream.h"
#include "progress.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

Target find_target(const Options& options, int stop)
{
    if (!options.no_identify) {
        return choose_instrument(options.reach, stop);
    }
    Target target;
    target.link = link_to_address(options.reach, stop);
    target.identity.mac = options.reach.mac.empty() ? eth_brdcast_addr : parse_mac(options.reach.mac).value();
    target.identity.address = resolve(options.reach.address, options.reach.port);
    return target;
}

size_t channels_of(const Options& options, const std::string& model)
{
    const size_t known = channels_of_model(model);
    const auto given = static_cast<size_t>(options.channels);
    if (given != 0 && known != 0 && given != known) {
        throw Failure(kExitBadOptions, model + " has " + std::to_string(known) + " modules");
    }
    if (given == 0 && known == 0) {
        throw Failure(kExitBadOptions,
                      "the model " + model + " does not say how many modules it has; use --channels");
    }
    return std::max(given, known);
}

// Throws if a module has failed.
void judge(const StreamResult& result, size_t channels)
{
    const bool failed =
        std::any_of(result.modules.begin(), result.modules.end(), [](uint32_t code) { return code != 0; });
    if (failed) {
        throw Failure(kExitRefused,
                      "not every module has accepted the image; restart the instrument, and see "
                      "what the modules run");
    }
    if (!result.confirmed) {
        throw Failure(kExitUnconfirmed,
                      "the whole image was sent, and of " + std::to_string(channels) + " modules " +
                          std::to_string(result.modules.size()) +
                          " have reported; the instrument's final word is missing. Restart it, and see what "
                          "the modules run");
    }
}

} // namespace

void program_modules(const Options& options, int stop)
{
    const std::string image = read_download(options.file);
    const Target target = find_target(options, stop);
    const std::string model = text_of(target.identity.rows, FLASH_MODELNAME);
    const size_t channels = channels_of(options, model);
    agree({options.no_identify ? "the instrument at " + options.reach.address : name_of(target.identity),
           "  modules: all " + std::to_string(channels) + " are programmed with " + options.file + ", " +
               std::to_string(image.size()) + " bytes",
           "  afterwards the instrument does not answer a search until it is restarted"},
          options.yes, stop);

    Progress progress(image.size());
    ModuleStream stream(
        *target.link, target.identity.mac, image, channels, stream_timing(channels),
        [&progress](size_t done) { progress.show(done); },
        [&progress, burning = size_t{0}](size_t channel, std::optional<uint32_t> ended) mutable {
            progress.leave();
            const std::string module = "module " + std::to_string(channel) + ": ";
            if (ended) {
                say(module + (*ended == 0 ? "done" : "failed, " + error_text(*ended)));
            } else if (std::exchange(burning, channel) != channel) {
                say(module + "is processing the image");
            }
        });
    try {
        const StreamResult result = stream.run();
        progress.leave();
        judge(result, channels);
    } catch (const Interrupted&) {
        progress.leave();
        if (stream.end_sent()) {
            throw Failure(
                kExitUnconfirmed,
                "interrupted; the whole image was sent, and the modules may be processing it: do not "
                "switch off yet; restart the instrument later, and see what the modules run");
        }
        throw Failure(kExitNotDone,
                      "interrupted; the instrument waits for the rest of the image, and answers "
                      "nothing else: restart it, or send the image whole with --no-identify");
    }
    say("all modules have accepted the image; frames resent: " + std::to_string(stream.resent()) +
        "\nrestart the instrument");
}

} // namespace orvan_maint
