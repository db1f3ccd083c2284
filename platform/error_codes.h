// What dsd's "error_code" values mean: one table shared by the daemon (which
// returns the named codes) and dsdc (which explains a failed request and
// prints the table as docs/error-codes.md with `dsdc codes --markdown`).
#pragma once

#include <cstdint>

// The codes the daemon's own steps return by name. Checkers carry their
// row's code from the module tables; those fall into the ranges below.
enum ds_error : int32_t {
    DS_OK = 0,
    DS_ERR_REQUEST = -40101,        // the default: unread, unanswered or internal
    DS_ERR_PARAM = -40102,          // URL decoding, a missing or empty parameter
    DS_ERR_NOMEM = -40103,          // out of memory, an invalid plan string
    DS_ERR_METHOD = -40105,         // method missing or not handled here
    DS_ERR_UNSUPPORTED = -40106,    // module, section, type or destination
    DS_ERR_FORWARD = -40108,        // the channel service failed
    DS_ERR_BUSY = -40109,           // the request queue is full
    DS_ERR_TOO_LONG = -40202,       // request record too long
    DS_ERR_SECTION_EXISTS = -40203, // add of a section already there
    DS_ERR_NO_SECTION = -40205,     // delete of a section not there
    DS_ERR_SECTION_LIMIT = -40207,  // add past the type's limit
    DS_ERR_ILLEGAL = -40209,        // illegal request or invalid value
    DS_ERR_BAD_REQUEST = -40210,    // not JSON, no "method", bad get
    DS_ERR_LOGIN_LOCKED = -40404,
    DS_ERR_NO_BUS = -70101,
    DS_ERR_BUS_CALL = -70102,
    DS_ERR_PLAN = -70105,
    DS_ERR_CHM = -70107,
    DS_ERR_BACKUP_HEADER = -50914,
    DS_ERR_BACKUP_CIPHER = -50916,
};

struct dsd_error_code {
    int32_t code;        // the code, or the upper (least negative) end of a range
    int32_t last;        // the lower end of the range; equal to code for one code
    const char *name;    // the enum name of an exact code; the area of a range
    const char *meaning;
};

// The table, exact codes first, then the ranges of each area; a row with a
// null meaning ends it.
extern const dsd_error_code dsd_error_codes[];

// The meaning of a code: its own row, else the first range holding it, else
// "unknown error code". Never null; static text. Any thread.
const char *dsd_error_meaning(int32_t code);
