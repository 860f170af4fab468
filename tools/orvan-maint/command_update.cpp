#include "commands.h"

#include "console.h"
#include "failure.h"
#include "package.h"
#include "progress.h"
#include "software_transfer.h"

#include <algorithm>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

// For an instrument to get out of a transfer that was broken off.
constexpr auto kToEnd = std::chrono::seconds(4);

constexpr auto kBetweenLooks = std::chrono::seconds(2);

Target find_target(const Reach& reach, int stop)
{
    std::string problem;
    if (reach.address.empty() || !discover(reach, stop, problem).empty()) {
        return choose_instrument(reach, stop);
    }
    complain("no answer from " + printable(reach.address) + problem +
             "; in case a download was broken off, it is ended");
    const auto link = link_to_address(reach, stop);
    end_broken_transfer(*link, reach.mac.empty() ? eth_brdcast_addr : parse_mac(reach.mac).value(), kToEnd);
    return choose_instrument(reach, stop);
}

const Platform& platform_for(const std::string& model, const std::string& bytes, const std::string& file)
{
    if (const Platform* const platform = platform_of_model(model)) {
        return *platform;
    }
    const std::vector<const Platform*> found = platforms_in(bytes, file);
    if (found.size() != 1) {
        throw Failure(kExitBadFile, "the model " + model + " does not tell its platform, and " +
                                        printable(file) + " is for " + std::to_string(found.size()) +
                                        " of them");
    }
    return *found[0];
}

void transfer(const Target& target, const std::string& bytes)
{
    Progress progress(bytes.size());
    SoftwareTransfer software(*target.link, target.identity.mac, bytes, kSoftwareTiming,
                              [&progress](size_t done) { progress.show(done); });
    try {
        software.run();
    } catch (const Failure& failure) {
        progress.leave();
        if (failure.code == kExitNotDone && software.end_sent()) {
            throw Failure(kExitUnconfirmed, "interrupted, but the instrument has the whole package");
        }
        if (failure.code == kExitNotDone) {
            UdpLink link(target.identity.address, -1);
            throw Failure(kExitNotDone,
                          end_broken_transfer(link, target.identity.mac, kToEnd)
                              ? "interrupted; the instrument has dropped what it had of the package"
                              : "interrupted; the instrument waits for the rest of the package, and answers "
                                "nothing else until it has it or is restarted");
        }
        throw;
    }
    progress.leave();
    say("the package has arrived whole; frames sent again: " + std::to_string(software.resent()));
}

// The instrument unpacks, and hands the modules theirs, before it answers again.
void wait_for_end(const Target& target, std::chrono::seconds time)
{
    say("the instrument is at work on it");
    const auto deadline = Clock::now() + time;
    while (Clock::now() < deadline) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const auto identity = identify(*target.link, target.identity.mac,
                                       std::min<std::chrono::milliseconds>(left, kBetweenLooks));
        if (identity) {
            say("the instrument has dealt with the package and answers again; its software was " +
                text_of(target.identity.rows, FLASH_CSCIVER) + " and is " +
                text_of(identity->rows, FLASH_CSCIVER) +
                "\nwhether it took the package, show tells after it has restarted");
            return;
        }
    }
    throw Failure(kExitUnconfirmed, "the package has arrived, and the instrument does not answer yet" +
                                        target.link->problem() + "; look with show later");
}

} // namespace

void update_software(const Options& options, int stop)
{
    const std::string bytes = read_download(options.file);
    platforms_in(bytes, options.file); // looks through it, whatever it is for
    const Target target = find_target(options.reach, stop);
    const std::string model = text_of(target.identity.rows, FLASH_MODELNAME);
    const Platform& platform = platform_for(model, bytes, options.file);
    const Package package = check_package(bytes, options.file, platform);

    agree(
        {name_of(target.identity),
         "  software: " + text_of(target.identity.rows, FLASH_CSCIVER) + " -> " + package.folder + " of " +
             options.file,
         "  controller: " + std::to_string(package.controller_files) + " files of " + package.controller_name,
         "  modules: " + std::to_string(package.module_size) + " bytes of " + package.module_name +
             ", and a restart",
         "  " + std::to_string(bytes.size()) + " bytes are sent"},
        options.yes, stop);
    transfer(target, bytes);
    if (options.after.count() != 0) {
        wait_for_end(target, options.after);
    }
}

} // namespace orvan_maint
