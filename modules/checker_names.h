// The names of the option checkers and the kind of argument each one reads,
// for tools that describe the model (dsdc schema). One table: a checker that
// option rows use must have its row here, or the description says "unknown".
#pragma once

#include "model/registry.h"

enum ds_arg_kind {
    DS_ARG_NONE = 0,      // the argument is not read
    DS_ARG_ENUM,          // const char *const[] ended by nullptr
    DS_ARG_INT_RANGE,     // ds_int_range
    DS_ARG_DOUBLE_RANGE,  // ds_double_range
    DS_ARG_LEN_RANGE,     // ds_len_range (string length)
    DS_ARG_PLAN_FORM,     // plan_form (modules/event/plan_checkers.h)
};

struct ds_checker_name {
    ds_checker_fn fn;
    const char *name;
    int arg_kind;         // ds_arg_kind
};

// Ends with a row whose fn is null.
extern const ds_checker_name ds_checker_names[];

// The row of fn, or null when fn is null or not in the table. Any thread.
const ds_checker_name *ds_checker_lookup(ds_checker_fn fn);
