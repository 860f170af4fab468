/**
 * What a model's name tells.
 */
#ifndef ORVAN_MAINT_MODELS_H
#define ORVAN_MAINT_MODELS_H

#include <string>
#include <vector>

namespace orvan_maint {

/** A kind of controller, by the words that its part of a software package goes by. */
struct Platform {
    const char* name;       /**< on the command line */
    const char* folder;     /**< in the name of the package's folder */
    const char* controller; /**< in the name of the archive with the controller's files */
};

extern const std::vector<Platform> kPlatforms;

/** Null when there is none of this name. */
const Platform* find_platform(const std::string& name);

/** Names in a row. */
std::string platform_names();

/** "OVX3654B" is a benchtop; null when the name does not tell. */
const Platform* platform_of_model(const std::string& model);

/** "OVX3654B" has 4; 0 when the name does not tell. */
size_t channels_of_model(const std::string& model);

} // namespace orvan_maint

#endif
