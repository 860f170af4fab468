#include "command_line.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>

#include <poll.h>

#include "channel_records/element_text.h"
#include "channel_records/records.h"
#include "channel_records/setup_file.h"
#include "options.h"
#include "output.h"

namespace orvan_db {
namespace {

int complain(ExitCode code, const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "orvan-db: %s\n", text.c_str());
    return code;
}

void print(const Options& options, const Items& items)
{
    if (options.json) {
        std::puts(json_document(items).c_str());
        return;
    }
    for (const Item& item : items) {
        std::puts(item_line(options, item).c_str());
    }
}

/** What was last printed of the records. */
using Printed = std::map<std::pair<int, int>, std::string>;

void print_changes(const Options& options, const Items& items, Printed& printed)
{
    for (const Item& item : items) {
        std::string now = orvan_records::stored_bytes(OrvanData::orvanMap[item.tag], *item.record);
        const auto [known, is_new] = printed.try_emplace({item.channel, item.tag});
        if (is_new || known->second != now) {
            known->second = std::move(now);
            std::puts(item_line(options, item).c_str());
        }
    }
    std::fflush(stdout);
}

// False when the watch is to end.
bool pause(std::chrono::milliseconds interval, int stop)
{
    pollfd end{stop, POLLIN, 0};
    return ::poll(&end, 1, static_cast<int>(interval.count())) == 0;
}

// The records of an instrument that has the chosen channel; empty, with a message, when there is none.
orvan_records::Records chosen_records(const Options& options, const char* object, const char* when_gone)
{
    orvan_records::Records records = orvan_records::read_records(object);
    if (records.empty()) {
        complain(kExitNoInstrument, when_gone);
    } else if (options.channel > static_cast<int>(records.size())) {
        complain(kExitNoInstrument, "channel " + std::to_string(options.channel) +
                                        " is not fitted: the instrument has " +
                                        std::to_string(records.size()));
        records.clear();
    }
    return records;
}

constexpr const char* kNoInstrument = "no instrument: no service keeps channel records here";

int show_records(const Options& options, const char* object, int stop)
{
    Printed printed;
    do {
        const orvan_records::Records records =
            chosen_records(options, object, printed.empty() ? kNoInstrument : "the instrument is gone");
        if (records.empty()) {
            return kExitNoInstrument;
        }
        const Items items = live_items(options, records);
        if (options.watch) {
            print_changes(options, items, printed);
        } else {
            print(options, items);
        }
    } while (options.watch && pause(options.interval, stop));
    return kExitDone;
}

int show_setup(const Options& options, const char* object)
{
    std::string complaint;
    const auto setup = orvan_records::read_setup(options.setup, complaint);
    if (!setup) {
        return complain(kExitBadSetup, options.setup + ": " + complaint);
    }
    if (!setup->passed_over.empty()) {
        complain(kExitDone, options.setup + ": ignored: " + setup->passed_over);
    }
    if (!options.diff) {
        print(options, setup_items(options, *setup));
        return kExitDone;
    }
    const orvan_records::Records records = chosen_records(options, object, kNoInstrument);
    if (records.empty()) {
        return kExitNoInstrument;
    }
    print(options, differing_items(options, records, *setup));
    return kExitDone;
}

} // namespace

int run(int argc, const char* const* argv, const char* object, int stop)
{
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    return options->setup.empty() ? show_records(*options, object, stop) : show_setup(*options, object);
}

} // namespace orvan_db
