#include "modules/event/plan_checkers.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/jso.h"
#include "platform/trace.h"

const plan_form plan_form_capture = {"%2d%2d-%2d%2d:%d%c", 5, 6, true, false};
const plan_form plan_form_record = {"%2d%2d-%2d%2d:%d%c", 5, 8, true, false};

namespace {

// The detection modules: plain periods; motion, tamper and face comparison
// reject text after the period (the trailing %c converts), intrusion and
// line crossing do not look at it.
const plan_form plan_form_strict = {"%2d%2d-%2d%2d%c", 4, 8, false, true};
const plan_form plan_form_loose = {"%2d%2d-%2d%2d", 4, 8, false, true};

struct period {
    int32_t start_hour, end_hour, start_min, end_min, mode;
};

// The quoted pieces of the text, in order; false when there are more than max.
bool split_periods(const char *text, int max, std::vector<std::string> *out)
{
    const char *p = text;
    for (;;) {
        const char *open = strchr(p, '"');
        const char *close = open ? strchr(open + 1, '"') : nullptr;
        if (!close)
            return true;
        if (static_cast<int>(out->size()) >= max)
            return false;
        out->emplace_back(open + 1, close);
        p = close + 1;
    }
}

uint32_t u(int32_t v)
{
    return static_cast<uint32_t>(v);
}

// Bounds and ordering of one period; hours and minutes compare unsigned so a
// negative field fails.
int32_t check_period(const period &pd, const plan_form &form)
{
    const int32_t boundary = form.plain_codes ? PLAN_ERR_BOUNDARY : PLAN_ERR_FORMAT;
    const int32_t order = form.plain_codes ? PLAN_ERR_ORDER : PLAN_ERR_FORMAT;
    if (form.typed && u(pd.mode) > 2)
        return PLAN_ERR_FORMAT;
    if (u(pd.start_hour) > 24 || u(pd.end_hour) > 24)
        return PLAN_ERR_FORMAT;
    if (u(pd.start_min) > 59 || u(pd.end_min) > 59)
        return PLAN_ERR_FORMAT;
    if (pd.start_hour == 24 && pd.start_min != 0)
        return boundary;
    if (pd.end_hour != 24 && u(pd.start_hour) > u(pd.end_hour))
        return order;
    if (pd.end_hour == 24 && pd.end_min != 0)
        return boundary;
    if (pd.start_hour == pd.end_hour && u(pd.start_min) > u(pd.end_min))
        return order;
    return 0;
}

int32_t minutes(int32_t hour, int32_t min)
{
    return hour * 60 + min;
}

// Only the earlier period's ends are tested against the later one, so the
// result depends on the order of the list; that is the rule the schedules
// have always had.
bool overlaps(const std::vector<period> &pds)
{
    for (size_t i = 0; i < pds.size(); i++) {
        int32_t is = minutes(pds[i].start_hour, pds[i].start_min);
        int32_t ie = minutes(pds[i].end_hour, pds[i].end_min);
        for (size_t j = i + 1; j < pds.size(); j++) {
            int32_t js = minutes(pds[j].start_hour, pds[j].start_min);
            int32_t je = minutes(pds[j].end_hour, pds[j].end_min);
            if ((js < is && is < je) || (js < ie && ie < je))
                return true;
        }
    }
    return false;
}

int32_t parse_period(const std::string &text, const plan_form &form, period *pd)
{
    char trailing = 0;
    int n = form.typed ? sscanf(text.c_str(), form.format, &pd->start_hour, &pd->start_min,
                                &pd->end_hour, &pd->end_min, &pd->mode, &trailing)
                       : sscanf(text.c_str(), form.format, &pd->start_hour, &pd->start_min,
                                &pd->end_hour, &pd->end_min, &trailing);
    return n == form.conversions ? 0 : PLAN_ERR_FORMAT;
}

int32_t check_weekly(json_object *value, const plan_form &form)
{
    if (!value || !jso_is_string(value)) {
        DS_TRACE_AS("check_plan", TRACE_ERROR, "Invalid params.");
        return PLAN_ERR_PARAM;
    }
    const char *text = jso_get_string_origin(value);
    if (!text)
        return PLAN_ERR_FORMAT;
    std::vector<std::string> texts;
    if (!split_periods(text, form.max_periods, &texts)) {
        DS_TRACE_AS("check_plan", TRACE_ERROR, "Record plan is too many.");
        return PLAN_ERR_FORMAT;
    }
    std::vector<period> pds(texts.size(), period{0, 0, 0, 0, 0});
    for (size_t i = 0; i < texts.size(); i++) {
        int32_t rc = parse_period(texts[i], form, &pds[i]);
        if (rc == 0)
            rc = check_period(pds[i], form);
        if (rc != 0)
            return rc;
    }
    return overlaps(pds) ? PLAN_ERR_FORMAT : 0;
}

// Union lists: the bound is the channel count or a fixed number.
int32_t check_union(json_object *value, int bound, int32_t code, const char *what)
{
    const char *text = value && jso_is_string(value) ? jso_get_string_origin(value) : nullptr;
    DS_TRACE_AS("check_union", TRACE_INFO, "%s_union_str is:%s", what, text ? text : "");
    json_object *arr = text ? json_tokener_parse(text) : nullptr;
    if (!arr || !json_object_is_type(arr, json_type_array)) {
        DS_TRACE_AS("check_union", TRACE_ERROR, "invalid format of string:%s", text ? text : "");
        json_object_put(arr);
        return code;
    }
    DS_TRACE_AS("check_union", TRACE_INFO, "chan_amount is:%d", get_chan_amount());
    int32_t rc = 0;
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n && rc == 0; i++) {
        json_object *item = json_object_array_get_idx(arr, i);
        if (!item)
            DS_TRACE_AS("check_union", TRACE_ERROR, "a_obj is NULL");
        int32_t v = json_object_get_int(item);
        DS_TRACE_AS("check_union", TRACE_INFO, "%s_union:%d", what, v);
        if (v < 1 || v > bound)
            rc = code;
    }
    json_object_put(arr);
    return rc;
}

int32_t row_or(int32_t row_code, int32_t own)
{
    return row_code ? row_code : own;
}

} // namespace

int get_chan_amount(void)
{
    return model_channel_amount();
}

int32_t check_plan(ds_context *, json_object *value, json_object *, const void *arg, int32_t)
{
    return check_weekly(value, arg ? *static_cast<const plan_form *>(arg) : plan_form_record);
}

int32_t check_md_plan(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    return check_weekly(value, plan_form_strict);
}

int32_t check_tamper_plan(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    return check_weekly(value, plan_form_strict);
}

int32_t check_facecomparison_plan(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    return check_weekly(value, plan_form_strict);
}

int32_t check_id_plan(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    return check_weekly(value, plan_form_loose);
}

int32_t check_ld_plan(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    return check_weekly(value, plan_form_loose);
}

// Hours stop at 23 here, start need not precede end, and fields sscanf could
// not read stay 0 (so text without digits passes): the push service's rules.
int32_t check_msg_push_plan_format(ds_context *, json_object *value, json_object *, const void *, int32_t)
{
    const char *text = value && jso_is_string(value) ? jso_get_string_origin(value) : nullptr;
    if (!text) {
        DS_ERR("Invalid params.");
        return PUSH_PLAN_ERR;
    }
    int32_t sh = 0, sm = 0, eh = 0, em = 0, days = 0;
    (void)sscanf(text, "%2d%2d-%2d%2d,%d", &sh, &sm, &eh, &em, &days);
    if (u(sh) > 23 || u(eh) > 23 || u(sm) > 59 || u(em) > 59 || u(days) > 127)
        return PUSH_PLAN_ERR;
    return 0;
}

int32_t check_alarm_record_union(ds_context *, json_object *value, json_object *, const void *, int32_t code)
{
    return check_union(value, get_chan_amount(), row_or(code, -73712), "record");
}

int32_t check_alarm_output_union(ds_context *, json_object *value, json_object *, const void *, int32_t code)
{
    return check_union(value, 4, row_or(code, -73710), "output");
}

int32_t check_tamper_record_union(ds_context *, json_object *value, json_object *, const void *, int32_t code)
{
    return check_union(value, get_chan_amount(), row_or(code, -70810), "record");
}

int32_t unusual_check_record_union(ds_context *, json_object *value, json_object *, const void *, int32_t code)
{
    return check_union(value, get_chan_amount(), row_or(code, -72207), "record");
}

int32_t check_record_union(ds_context *, json_object *value, json_object *, const void *, int32_t code)
{
    return value && jso_is_string(value) ? 0 : row_or(code, -70710);
}
