/**
 * ORVAN_API marks what liborvan_sdk.so exports; the library is compiled with all else hidden.
 */
#ifndef ORVAN_SDK_ORVAN_API_H
#define ORVAN_SDK_ORVAN_API_H

#define ORVAN_API __attribute__((visibility("default")))

#endif
