#include "orvan_sdk/lxi/option_tables.h"

namespace HaldeElec::Orvan {

// clang-format off
optEntry_t optPortable_Tbl[kOptionRows] = {
    // bitStart, bitNum, modify, defaults, symbol
    { 0, 4, 1, 8, ""},
    { 4, 1, 1, 1, "MOD"},
    { 5, 1, 1, 0, "PLS"},
    { 6, 0, 0, 0, ""},
    { 7, 1, 1, 0, "LP"},
    { 8, 1, 1, 0, "EMU"},
    { 9, 1, 1, 0, "PAT"},
    {10, 1, 1, 0, "UFS"},
    {11, 1, 1, 1, "BAT"},
    {12, 0, 0, 0, ""},
    {13, 0, 0, 0, ""},
    {14, 0, 0, 0, ""},
    {15, 0, 0, 0, ""},
    {}, {}, {},
};

optEntry_t optBenchtop_Tbl[kOptionRows] = {
    { 0, 4, 1, 8, ""},
    { 4, 1, 1, 1, "MOD"},
    { 5, 1, 1, 0, "PLS"},
    { 6, 1, 1, 0, "FS"},
    { 7, 1, 1, 1, "LP"},
    { 8, 1, 1, 0, "EMU"},
    { 9, 1, 1, 0, "PAT"},
    {10, 1, 1, 0, "UFS"},
    {11, 1, 1, 0, "FIL"},
    {12, 1, 1, 0, "ULN"},
    {13, 0, 0, 0, ""},
    {14, 1, 1, 0, "EPR"},
    {15, 1, 1, 0, "ELP"},
    {}, {}, {},
};

optEntry_t optKsr7000_Tbl[kOptionRows] = {
    { 0, 4, 1, 8, ""},
    { 4, 1, 1, 1, "MOD"},
    { 5, 1, 1, 0, "PLS"},
    { 6, 1, 1, 0, "FS"},
    { 7, 1, 1, 0, "LP"},
    { 8, 1, 1, 1, "BAT"},
    { 9, 1, 1, 0, "PAT"},
    {10, 1, 1, 0, "UFS"},
    {11, 0, 0, 0, ""},
    {12, 0, 0, 0, ""},
    {13, 0, 0, 0, ""},
    {14, 0, 0, 0, ""},
    {15, 0, 0, 0, ""},
    {}, {}, {},
};
// clang-format on

} // namespace HaldeElec::Orvan
