/**
 * What can be derived from a model's name.
 */
#ifndef ORVAN_MAINT_MODELS_H
#define ORVAN_MAINT_MODELS_H

#include <string>
#include <vector>

namespace orvan_maint {

/** A kind of controller, with the words that identify its part of a software package. */
struct Platform {
    const char* name;       /**< on the command line */
    const char* folder;     /**< in the name of the package's folder */
    const char* controller; /**< in the name of the archive with the controller's files */
};

extern const std::vector<Platform> kPlatforms;

/** Null for an unknown name. */
const Platform* find_platform(const std::string& name);

/** All names in one text. */
std::string platform_names();

/** "OVX3654B" is a benchtop; null when the name does not say. */
const Platform* platform_of_model(const std::string& model);

/** "OVX3654B" has 4; 0 when the name does not say. */
size_t channels_of_model(const std::string& model);

} // namespace orvan_maint

#endif
