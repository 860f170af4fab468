#include <utility>

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "package.h"
#include "progress.h"
#include "restart_watch.h"
#include "software_transfer.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

// For an instrument to leave an interrupted transfer.
constexpr auto kToEnd = std::chrono::seconds(4);

constexpr const char* kInterruptedAtWork =
    "interrupted; the whole package was sent, and the instrument may be processing it: check with show later";

constexpr const char* kDamaged =
    "damaged: the instrument took blocks from someone else as well, whose acknowledgements came here; it "
    "installs nothing that is damaged. Start again when no other PC sends to it";

Target find_target(const Options& options, int stop)
{
    const Reach& reach = options.reach;
    std::string problem;
    if (reach.address.empty() || !discover(reach, stop, problem).empty()) {
        return choose_instrument(reach, stop);
    }
    complain("no answer from " + printable(reach.address) + problem +
             "; it may be in an interrupted download");
    agree({"the instrument at " + printable(reach.address),
           "  a download that it is in, be it another PC's, is ended, and what has arrived of it is dropped"},
          options.yes, stop);
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
        throw Failure(kExitBadFile, "the model " + model + " does not say its platform, and " +
                                        printable(file) + " is for " + std::to_string(found.size()) +
                                        " of them");
    }
    return *found[0];
}

// Whether the instrument has acknowledged the package's end.
bool transfer(const Target& target, const std::string& bytes, bool looks_after_it)
{
    Progress progress(bytes.size());
    SoftwareTransfer software(*target.link, target.identity.mac, bytes, kSoftwareTiming,
                              [&progress](size_t done) { progress.show(done); });
    const auto leave = [&progress, &software] {
        progress.leave();
        if (software.damaged()) {
            complain(kDamaged);
        }
    };
    try {
        software.run();
    } catch (const Failure& failure) {
        leave();
        if (failure.code == kExitNotDone && software.end_sent()) {
            throw Failure(kExitUnconfirmed, kInterruptedAtWork);
        }
        if (failure.code == kExitNotDone) {
            UdpLink link(target.identity.address, -1);
            throw Failure(kExitNotDone,
                          end_broken_transfer(link, target.identity.mac, kToEnd)
                              ? "interrupted; the instrument has dropped what it had of the package"
                              : "interrupted; the instrument waits for the rest of the package, and answers "
                                "nothing else until it has it or is restarted");
        }
        if (failure.code == kExitUnconfirmed && looks_after_it) {
            // It does not answer while it processes the package.
            complain(failure.what());
            return false;
        }
        throw;
    }
    leave();
    say(std::string(software.damaged() ? "all of the package was sent" : "the whole package has arrived") +
        "; frames resent: " + std::to_string(software.resent()));
    return true;
}

std::string version_of(const Rows& rows)
{
    return text_of(rows, FLASH_CSCIVER);
}

// The instrument unpacks, and updates the modules, before it answers again. It reports no failure, but
// restarts only to install a package.
void wait_for_end(RestartWatch& watch, const UdpLink& link, std::chrono::seconds time)
{
    say("the instrument is processing it");
    const std::string was = version_of(watch.rows());
    const Aftermath aftermath = watch.follow(Clock::now() + time, [] {
        say("the instrument has processed the package and answers again; whether it restarts shows within " +
            std::to_string(std::chrono::floor<std::chrono::seconds>(kWatchTiming.settled).count()) + " s");
    });
    const std::string is = version_of(watch.rows());
    switch (aftermath) {
    case Aftermath::kRestarted:
        say("installed: the instrument went away and came back; its software " +
            (is != was ? "was " + was + " and is " + is : "is " + is + ", as before"));
        return;
    case Aftermath::kStayed:
        throw Failure(kExitRefused, "refused: the instrument has processed the package and has not "
                                    "restarted, as it does to install one; its log has the reason");
    case Aftermath::kSilent:
        throw Failure(kExitUnconfirmed, "silent: the whole package was sent, and the instrument has not "
                                        "answered since" +
                                            link.problem() + "; check with show later");
    case Aftermath::kWentAway:
        throw Failure(kExitUnconfirmed, "silent: the instrument went away, and has not come back yet" +
                                            link.problem() + "; check with show later");
    case Aftermath::kUnknown:
        break;
    }
    throw Failure(kExitUnconfirmed, "not known: the instrument answers, and whether it has been restarted "
                                    "cannot be told, or its restart is still to come; check with show later");
}

} // namespace

void update_software(const Options& options, int stop)
{
    std::string file = read_download(options.file);
    platforms_in(file, options.file); // checks it, whatever its platform
    const std::string bytes = packed(std::move(file));
    const Target target = find_target(options, stop);
    const std::string model = text_of(target.identity.rows, FLASH_MODELNAME);
    const Platform& platform = platform_for(model, bytes, options.file);
    const Package package = check_package(bytes, options.file, platform);

    for (const std::string& warning : warnings_of(package, platform)) {
        complain("warning: " + warning);
    }
    agree(
        {name_of(target.identity),
         "  software: " + text_of(target.identity.rows, FLASH_CSCIVER) + " -> " + package.folder + " of " +
             options.file,
         "  controller: " + std::to_string(package.controller_files) + " files of " + package.controller_name,
         "  modules: " + std::to_string(package.module_size) + " bytes of " + package.module_name +
             ", and a restart",
         "  " + std::to_string(bytes.size()) + " bytes are sent"},
        options.yes, stop);
    const bool looks_after_it = options.after.count() != 0;
    RestartWatch watch(*target.link, target.identity.mac, target.identity.rows, kWatchTiming);
    if (looks_after_it) {
        watch.prepare();
    }
    const bool acknowledged = transfer(target, bytes, looks_after_it);
    if (!looks_after_it) {
        throw Failure(
            kExitUnconfirmed,
            "not known: whether the instrument installs the package, show reports after its restart");
    }
    try {
        if (acknowledged) {
            watch.mark();
        }
        wait_for_end(watch, *target.link, options.after);
    } catch (const Interrupted&) {
        throw Failure(kExitUnconfirmed, kInterruptedAtWork);
    }
}

} // namespace orvan_maint
