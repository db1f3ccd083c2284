#include "client/error_codes.h"

// Exact rows come before the ranges so a listed code wins over its area.
const dsd_error_code dsd_error_codes[] = {
    {.code = 0, .last = 0, .meaning = "success"},
    {.code = -40101, .last = -40101,
     .meaning = "request could not be read or answered (short record, bad info record, "
                "no free context, internal failure)"},
    {.code = -40102, .last = -40102, .meaning = "URL decoding failed, or a parameter is missing or empty"},
    {.code = -40103, .last = -40103, .meaning = "out of memory for the request, or an invalid plan string"},
    {.code = -40105, .last = -40105, .meaning = "no request record (method code missing) or method not handled here"},
    {.code = -40106, .last = -40106, .meaning = "module, section name, section type or destination not supported"},
    {.code = -40108, .last = -40108, .meaning = "forward: the channel service failed or returned nothing"},
    {.code = -40109, .last = -40109, .meaning = "daemon busy: the request queue is full"},
    {.code = -40202, .last = -40202, .meaning = "request record longer than 262144 bytes"},
    {.code = -40203, .last = -40203, .meaning = "add: the section already exists"},
    {.code = -40205, .last = -40205, .meaning = "delete: the section does not exist"},
    {.code = -40207, .last = -40207, .meaning = "add: the section type has reached its limit"},
    {.code = -40209, .last = -40209, .meaning = "illegal request or invalid value (unknown method name, bad argument)"},
    {.code = -40210, .last = -40210, .meaning = "request is not JSON, lacks \"method\", or is an invalid get request"},
    {.code = -40404, .last = -40404, .meaning = "login locked after too many failures"},
    {.code = -70101, .last = -70101, .meaning = "no bus connection (ubusd not reachable)"},
    {.code = -70102, .last = -70102, .meaning = "bus call failed (service missing, failed or timed out)"},
    {.code = -70105, .last = -70105, .meaning = "invalid schedule (plan) parameter"},
    {.code = -70107, .last = -70107, .meaning = "channel manager request failed"},
    {.code = -50914, .last = -50914, .meaning = "backup file header invalid (digest or device name)"},
    {.code = -50916, .last = -50916, .meaning = "backup file cannot be deciphered"},
    {.code = -40200, .last = -40299, .meaning = "request or registry error"},
    {.code = -40300, .last = -40399, .meaning = "invalid address or network setting"},
    {.code = -40400, .last = -40499, .meaning = "login or account error"},
    {.code = -50100, .last = -50199, .meaning = "invalid network value (DNS, MAC address)"},
    {.code = -50900, .last = -50999, .meaning = "configuration backup or restore error"},
    {.code = -70100, .last = -70199, .meaning = "bus or internal error"},
    {.code = -70200, .last = -70699, .meaning = "option value rejected by its checker (see the option's code in docs/modules.md)"},
    {.code = -70700, .last = -70999, .meaning = "detection or alarm setting rejected"},
    {.code = -71000, .last = -71999, .meaning = "schedule or channel manager error"},
    {.code = -40000, .last = -79999, .meaning = "module error (see the option's code in docs/modules.md)"},
    {.code = 0, .last = 0, .meaning = nullptr},
};

const char *dsd_error_meaning(int32_t code)
{
    for (const dsd_error_code *e = dsd_error_codes; e->meaning; ++e) {
        if (e->code == code)
            return e->meaning;
    }
    for (const dsd_error_code *e = dsd_error_codes; e->meaning; ++e) {
        if (e->code != e->last && code <= e->code && code >= e->last)
            return e->meaning;
    }
    return "unknown error code";
}
