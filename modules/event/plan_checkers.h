// Weekly arming schedules, push plans and linked-channel lists: the option
// checkers every event module binds in its tables.
//
// A weekly plan option holds a JSON-like list of quoted periods:
// "[\"0000-2400\"]" (plain form, detection modules) or
// "[\"0800-1200:1\"]" (typed form with a mode code 0-2: record, capture and
// cloud plans). Only the quotes give structure; brackets and commas are
// ignored.
#pragma once

#include <cstdint>

#include "model/registry.h"

// How one module reads its periods. The argument of check_plan.
struct plan_form {
    const char *format; // sscanf format of one period
    int conversions;    // sscanf must convert exactly this many
    int max_periods;
    bool typed;         // carries a mode code after a colon
    bool plain_codes;   // ordering faults get -71003 / -71001 instead of -40209
};

extern const plan_form plan_form_capture; // typed, 6 periods
extern const plan_form plan_form_record;  // typed, 8 periods (record and cloud plans)

enum {
    PLAN_ERR_PARAM = -70105,
    PLAN_ERR_ALLOC = -40103,
    PLAN_ERR_FORMAT = -40209,
    PLAN_ERR_BOUNDARY = -71003, // a period starting at 24:xx or ending past 24:00
    PLAN_ERR_ORDER = -71001,    // a period ending before it starts
    PUSH_PLAN_ERR = -73403,
};

// Checker signature (context, value, section object, argument, row code).
int32_t check_plan(ds_context *, json_object *, json_object *, const void *arg, int32_t);
int32_t check_md_plan(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_tamper_plan(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_facecomparison_plan(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_id_plan(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_ld_plan(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_msg_push_plan_format(ds_context *, json_object *, json_object *, const void *, int32_t);

// Linked channel / alarm-output lists: a JSON string holding a JSON array of
// integers, each within 1..bound. The row code wins over the checker's own.
int32_t check_alarm_record_union(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_alarm_output_union(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_tamper_record_union(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t unusual_check_record_union(ds_context *, json_object *, json_object *, const void *, int32_t);
// Only requires a JSON string.
int32_t check_record_union(ds_context *, json_object *, json_object *, const void *, int32_t);

// The configured channel count ("basic_info" "chan_amount").
int get_chan_amount(void);
