#include "orvan_db.h"

namespace orvan_test {

Outcome orvan_db(const Instrument& instrument, const std::vector<std::string>& arguments)
{
    std::vector<std::string> command{program("orvan-db")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return instrument.exec("controller", command);
}

std::string element(const Instrument& instrument, int channel, const std::string& tag)
{
    const std::string row = orvan_db(instrument, {"--channel", std::to_string(channel), "--tag", tag}).output;
    const size_t begin = row.find_last_of(' ', row.find('"')) + 1;
    return row.substr(begin, row.find_last_not_of('\n') + 1 - begin);
}

} // namespace orvan_test
