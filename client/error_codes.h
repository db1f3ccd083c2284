// What dsd's "error_code" values mean: one table, read by dsdc to explain a
// failed request and printed by `dsdc codes --markdown` as docs/error-codes.md.
#pragma once

#include <cstdint>

struct dsd_error_code {
    int32_t code;        // the code, or the upper (least negative) end of a range
    int32_t last;        // the lower end of the range; equal to code for one code
    const char *meaning;
};

// The table, exact codes first, then the ranges of each area; a row with a
// null meaning ends it.
extern const dsd_error_code dsd_error_codes[];

// The meaning of a code: its own row, else the first range holding it, else
// "unknown error code". Never null; static text. Any thread.
const char *dsd_error_meaning(int32_t code);
