#ifndef ORVAN_WEB_STATUS_H
#define ORVAN_WEB_STATUS_H

namespace orvan_web {

/** The reason phrase of a status, "Not Found"; "Error" for one that the server never sends itself. */
const char* reason_phrase(int status);

} // namespace orvan_web

#endif
