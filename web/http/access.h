#ifndef ORVAN_WEB_ACCESS_H
#define ORVAN_WEB_ACCESS_H

#include <string>

namespace orvan_web {

/** What somebody without a token may do, as the document of the instrument has it. */
struct Access {
    bool changes = false; /**< whether changes are possible at all, after giving the password if one is set */
    bool password_set = false;
    std::string reason{}; /**< why changes are not possible */
};

} // namespace orvan_web

#endif
