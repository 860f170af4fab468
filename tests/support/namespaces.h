/**
 * Private namespaces of the process.
 */
#ifndef ORVAN_TESTS_SUPPORT_NAMESPACES_H
#define ORVAN_TESTS_SUPPORT_NAMESPACES_H

#include <string>

namespace orvan_test {

/** Moves the calling thread into a new namespace; one that is not privileged gets a user namespace with it,
 * for which the process must have one thread. @param flag one of clone(2)'s CLONE_NEW @return false with
 * errno */
bool enter_namespace(int flag);

/** The errno of the last call. */
std::string failure(const char* step);

} // namespace orvan_test

#endif
