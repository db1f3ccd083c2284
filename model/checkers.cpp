// Option value checkers. Each one returns 0 for an accepted value, its own
// code for a missing value or argument, and otherwise the row's error code
// when the row has one (only a row code of 0 lets the checker's own code
// through). Checkers never change the value or the context. Any thread.
#include "model/checkers.h"

#include <cstdio>

#include "platform/jso.h"
#include "platform/trace.h"

namespace {

enum : int32_t {
    ERR_INTERNAL = -40101,
    ERR_DOUBLE = -40209,
    ERR_IP = -40301,
    ERR_BAD_PARAM = -70105,
    ERR_READONLY = -70206,
    ERR_ENUM_TYPE = -70211,
    ERR_ENUM_VALUE = -70212,
    ERR_INT_TYPE = -70221,
    ERR_INT_RANGE = -70222,
    ERR_STR_TYPE = -70231,
    ERR_STR_LEN = -70233,
};

int32_t reject(int32_t row_code, int32_t own_code)
{
    return row_code != 0 ? row_code : own_code;
}

} // namespace

const char *const ds_enum_on_off[] = {"on", "off", nullptr};
const char *const ds_enum_0_1[] = {"0", "1", nullptr};

// Accepts a JSON string equal to one entry of the enum list `arg`.
int32_t check_enum_type(ds_context *, json_object *value, json_object *, const void *arg,
                        int32_t err_code)
{
    if (!value || !arg) {
        DS_ERR("Invalid params.");
        return ERR_BAD_PARAM;
    }
    if (!jso_is_string(value))
        return reject(err_code, ERR_ENUM_TYPE);
    if (!str_in_list(jso_get_string_origin(value), static_cast<const char *const *>(arg)))
        return reject(err_code, ERR_ENUM_VALUE);
    return 0;
}

// Like check_enum_type, but a JSON integer is compared in its decimal form.
int32_t check_mixed_enum_type(ds_context *, json_object *value, json_object *, const void *arg,
                              int32_t err_code)
{
    if (!value || !arg) {
        DS_ERR("Invalid params.");
        return ERR_BAD_PARAM;
    }
    char buf[16];
    const char *text = nullptr;
    if (jso_is_string(value)) {
        text = jso_get_string_origin(value);
    } else if (jso_is_int(value)) {
        if (snprintf(buf, sizeof buf, "%d", jso_get_int(value)) <= 0)
            return reject(err_code, ERR_ENUM_TYPE);
        text = buf;
    } else {
        return reject(err_code, ERR_ENUM_TYPE);
    }
    if (!str_in_list(text, static_cast<const char *const *>(arg)))
        return reject(err_code, ERR_ENUM_VALUE);
    return 0;
}

// Accepts a JSON integer, or a string that str_to_int reads, within the
// inclusive ds_int_range `arg`.
int32_t check_int_type(ds_context *, json_object *value, json_object *, const void *arg,
                       int32_t err_code)
{
    if (!value || !arg) {
        DS_ERR("Invalid params.");
        return ERR_BAD_PARAM;
    }
    int32_t v = 0;
    if (jso_is_int(value)) {
        v = jso_get_int(value);
    } else if (!jso_is_string(value) || str_to_int(jso_get_string_origin(value), &v) != 0) {
        return reject(err_code, ERR_INT_TYPE);
    }
    const auto *range = static_cast<const ds_int_range *>(arg);
    if (!int_in_range(v, range->min, range->max))
        return reject(err_code, ERR_INT_RANGE);
    return 0;
}

// Accepts only a JSON string holding a decimal number within the inclusive
// ds_double_range `arg`; JSON numbers are refused so stored text stays exact.
int32_t check_double_type(ds_context *, json_object *value, json_object *, const void *arg,
                          int32_t err_code)
{
    if (!value || !arg) {
        DS_ERR("Invalid params.");
        return ERR_BAD_PARAM;
    }
    double v = 0;
    if (!jso_is_string(value) || str_to_double(jso_get_string_origin(value), &v) != 0)
        return reject(err_code, ERR_DOUBLE);
    const auto *range = static_cast<const ds_double_range *>(arg);
    if (range->min > range->max || !(v >= range->min && v <= range->max))
        return reject(err_code, ERR_DOUBLE);
    return 0;
}

// Accepts a JSON string whose byte length lies in the ds_len_range `arg`.
// A missing value answers -40101, not -70105: callers tell the two apart.
int32_t check_string_type(ds_context *, json_object *value, json_object *, const void *arg,
                          int32_t err_code)
{
    if (!value || !arg) {
        DS_ERR("Invalid params.");
        return ERR_INTERNAL;
    }
    if (!jso_is_string(value))
        return reject(err_code, ERR_STR_TYPE);
    const auto *range = static_cast<const ds_len_range *>(arg);
    if (!strlen_in_range(jso_get_string_origin(value), range->min, range->max))
        return reject(err_code, ERR_STR_LEN);
    return 0;
}

// Accepts a JSON string that ipv4_check_host takes as a unicast host address;
// every refusal folds into one code (callers needing detail call the helper).
int32_t check_ip_type(ds_context *, json_object *value, json_object *, const void *,
                      int32_t err_code)
{
    if (!value) {
        DS_ERR("Invalid params.");
        return ERR_BAD_PARAM;
    }
    if (!jso_is_string(value) || ipv4_check_host(jso_get_string_origin(value)) != 0)
        return reject(err_code, ERR_IP);
    return 0;
}

// Accepts every value: the option is written as the client sent it.
int32_t check_any_type(ds_context *, json_object *, json_object *, const void *, int32_t)
{
    return 0;
}

// Refuses every value: the option exists for reading only.
int32_t check_readonly_type(ds_context *, json_object *, json_object *, const void *, int32_t)
{
    return ERR_READONLY;
}
