/**
 * The settings that can be written to an instrument, as command line options.
 */
#ifndef ORVAN_MAINT_SETTINGS_H
#define ORVAN_MAINT_SETTINGS_H

#include <map>
#include <string>
#include <vector>

namespace orvan_maint {

struct Setting {
    char letter;      /**< of its row */
    const char* flag; /**< "--ip" */
    const char* type;
    const char* help;
    std::string (*check)(const std::string&);
};

extern const std::vector<Setting> kNetworkSettings;
extern const std::vector<Setting> kFactorySettings;

/** By letter. */
using SettingValues = std::map<char, std::string>;

} // namespace orvan_maint

#endif
