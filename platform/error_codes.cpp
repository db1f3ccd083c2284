#include "platform/error_codes.h"

// Exact rows come before the ranges so a listed code wins over its area.
const dsd_error_code dsd_error_codes[] = {
    {.code = DS_OK, .last = DS_OK, .name = "DS_OK", .meaning = "success"},
    {.code = DS_ERR_REQUEST, .last = DS_ERR_REQUEST, .name = "DS_ERR_REQUEST",
     .meaning = "request could not be read or answered (short record, bad info record, "
                "no free context, internal failure)"},
    {.code = DS_ERR_PARAM, .last = DS_ERR_PARAM, .name = "DS_ERR_PARAM", .meaning = "URL decoding failed, or a parameter is missing or empty"},
    {.code = DS_ERR_NOMEM, .last = DS_ERR_NOMEM, .name = "DS_ERR_NOMEM", .meaning = "out of memory for the request, or an invalid plan string"},
    {.code = DS_ERR_METHOD, .last = DS_ERR_METHOD, .name = "DS_ERR_METHOD", .meaning = "no request record (method code missing) or method not handled here"},
    {.code = DS_ERR_UNSUPPORTED, .last = DS_ERR_UNSUPPORTED, .name = "DS_ERR_UNSUPPORTED", .meaning = "module, section name, section type or destination not supported"},
    {.code = DS_ERR_FORWARD, .last = DS_ERR_FORWARD, .name = "DS_ERR_FORWARD", .meaning = "forward: the channel service failed or returned nothing"},
    {.code = DS_ERR_BUSY, .last = DS_ERR_BUSY, .name = "DS_ERR_BUSY", .meaning = "daemon busy: the request queue is full"},
    {.code = DS_ERR_TOO_LONG, .last = DS_ERR_TOO_LONG, .name = "DS_ERR_TOO_LONG", .meaning = "request record longer than 262144 bytes"},
    {.code = DS_ERR_SECTION_EXISTS, .last = DS_ERR_SECTION_EXISTS, .name = "DS_ERR_SECTION_EXISTS", .meaning = "add: the section already exists"},
    {.code = DS_ERR_NO_SECTION, .last = DS_ERR_NO_SECTION, .name = "DS_ERR_NO_SECTION", .meaning = "delete: the section does not exist"},
    {.code = DS_ERR_SECTION_LIMIT, .last = DS_ERR_SECTION_LIMIT, .name = "DS_ERR_SECTION_LIMIT", .meaning = "add: the section type has reached its limit"},
    {.code = DS_ERR_ILLEGAL, .last = DS_ERR_ILLEGAL, .name = "DS_ERR_ILLEGAL", .meaning = "illegal request or invalid value (unknown method name, bad argument)"},
    {.code = DS_ERR_BAD_REQUEST, .last = DS_ERR_BAD_REQUEST, .name = "DS_ERR_BAD_REQUEST", .meaning = "request is not JSON, lacks \"method\", or is an invalid get request"},
    {.code = DS_ERR_LOGIN_LOCKED, .last = DS_ERR_LOGIN_LOCKED, .name = "DS_ERR_LOGIN_LOCKED", .meaning = "login locked after too many failures"},
    {.code = DS_ERR_NO_BUS, .last = DS_ERR_NO_BUS, .name = "DS_ERR_NO_BUS", .meaning = "no bus connection (ubusd not reachable)"},
    {.code = DS_ERR_BUS_CALL, .last = DS_ERR_BUS_CALL, .name = "DS_ERR_BUS_CALL", .meaning = "bus call failed (service missing, failed or timed out)"},
    {.code = DS_ERR_PLAN, .last = DS_ERR_PLAN, .name = "DS_ERR_PLAN", .meaning = "invalid schedule (plan) parameter"},
    {.code = DS_ERR_CHM, .last = DS_ERR_CHM, .name = "DS_ERR_CHM", .meaning = "channel manager request failed"},
    {.code = DS_ERR_BACKUP_HEADER, .last = DS_ERR_BACKUP_HEADER, .name = "DS_ERR_BACKUP_HEADER", .meaning = "backup file header invalid (digest or device name)"},
    {.code = DS_ERR_BACKUP_CIPHER, .last = DS_ERR_BACKUP_CIPHER, .name = "DS_ERR_BACKUP_CIPHER", .meaning = "backup file cannot be deciphered"},
    {.code = -40200, .last = -40299, .name = "request", .meaning = "request or registry error"},
    {.code = -40300, .last = -40399, .name = "address", .meaning = "invalid address or network setting"},
    {.code = -40400, .last = -40499, .name = "login", .meaning = "login or account error"},
    {.code = -50100, .last = -50199, .name = "network value", .meaning = "invalid network value (DNS, MAC address)"},
    {.code = -50900, .last = -50999, .name = "backup", .meaning = "configuration backup or restore error"},
    {.code = -70100, .last = -70199, .name = "bus", .meaning = "bus or internal error"},
    {.code = -70200, .last = -70699, .name = "option", .meaning = "option value rejected by its checker (see the option's code in docs/modules.md)"},
    {.code = -70700, .last = -70999, .name = "detection", .meaning = "detection or alarm setting rejected"},
    {.code = -71000, .last = -71999, .name = "schedule", .meaning = "schedule or channel manager error"},
    {.code = -40000, .last = -79999, .name = "module", .meaning = "module error (see the option's code in docs/modules.md)"},
    {.code = 0, .last = 0, .name = nullptr, .meaning = nullptr},
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
