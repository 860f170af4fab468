#include "command_line.h"

#include "element_text.h"
#include "options.h"
#include "output.h"
#include "records.h"

#include <poll.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>

namespace orvan_db {
namespace {

int complain(const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "orvan-db: %s\n", text.c_str());
    return kExitNoInstrument;
}

/** What of the records was printed last. */
using Printed = std::map<std::pair<int, int>, std::string>;

void print_changes(const Options& options, const Records& records, Printed& printed)
{
    for_each_element(options, records, [&](int channel, int tag) {
        std::string now = stored_bytes(OrvanData::orvanMap[tag], records[static_cast<size_t>(channel) - 1]);
        const auto [known, is_new] = printed.try_emplace({channel, tag});
        if (is_new || known->second != now) {
            known->second = std::move(now);
            std::puts(element_line(options, records, channel, tag).c_str());
        }
    });
    std::fflush(stdout);
}

// False when the watch is to end.
bool pause(std::chrono::milliseconds interval, int stop)
{
    pollfd end{stop, POLLIN, 0};
    return ::poll(&end, 1, static_cast<int>(interval.count())) == 0;
}

} // namespace

int run(int argc, const char* const* argv, const char* object, int stop)
{
    int exit_code = kExitDone;
    const auto options = parse_options(argc, argv, exit_code);
    if (!options) {
        return exit_code;
    }
    Printed printed;
    do {
        const Records records = read_records(object);
        if (records.empty()) {
            return complain(printed.empty() ? "no instrument: no service keeps channel records here"
                                            : "the instrument is gone");
        }
        if (options->channel > static_cast<int>(records.size())) {
            return complain("channel " + std::to_string(options->channel) +
                            " is not fitted: the instrument has " + std::to_string(records.size()));
        }
        if (options->json && !options->watch) {
            std::puts(json_document(*options, records).c_str());
        } else {
            print_changes(*options, records, printed);
        }
    } while (options->watch && pause(options->interval, stop));
    return kExitDone;
}

} // namespace orvan_db
