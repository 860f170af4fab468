#ifndef ORVAN_TESTS_SUPPORT_NEXT_SYMBOL_H
#define ORVAN_TESTS_SUPPORT_NEXT_SYMBOL_H

#include <dlfcn.h>

namespace orvan_test {

/** The function that the program's own one of the same name overrides. */
template <typename Function>
Function* next_symbol(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace orvan_test

#endif
