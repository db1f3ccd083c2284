#include "modules/checker_names.h"

#include "model/checkers.h"
#include "modules/event/plan_checkers.h"
#include "modules/network/net_checkers.h"

#define CHECKER(f, kind) {.fn = f, .name = #f, .arg_kind = kind}

const ds_checker_name ds_checker_names[] = {
    CHECKER(check_enum_type, DS_ARG_ENUM),
    CHECKER(check_mixed_enum_type, DS_ARG_ENUM),
    CHECKER(check_int_type, DS_ARG_INT_RANGE),
    CHECKER(check_double_type, DS_ARG_DOUBLE_RANGE),
    CHECKER(check_string_type, DS_ARG_LEN_RANGE),
    CHECKER(check_ip_type, DS_ARG_NONE),
    CHECKER(check_any_type, DS_ARG_NONE),
    CHECKER(check_readonly_type, DS_ARG_NONE),
    CHECKER(check_plan, DS_ARG_PLAN_FORM),
    CHECKER(check_md_plan, DS_ARG_NONE),
    CHECKER(check_tamper_plan, DS_ARG_NONE),
    CHECKER(check_facecomparison_plan, DS_ARG_NONE),
    CHECKER(check_id_plan, DS_ARG_NONE),
    CHECKER(check_ld_plan, DS_ARG_NONE),
    CHECKER(check_msg_push_plan_format, DS_ARG_NONE),
    CHECKER(check_alarm_record_union, DS_ARG_NONE),
    CHECKER(check_alarm_output_union, DS_ARG_NONE),
    CHECKER(check_tamper_record_union, DS_ARG_NONE),
    CHECKER(unusual_check_record_union, DS_ARG_NONE),
    CHECKER(check_record_union, DS_ARG_NONE),
    CHECKER(check_pridns, DS_ARG_NONE),
    CHECKER(check_static_pridns, DS_ARG_NONE),
    CHECKER(check_secdns, DS_ARG_NONE),
    CHECKER(check_gateway, DS_ARG_NONE),
    CHECKER(check_wan_macaddr, DS_ARG_NONE),
    CHECKER(check_wan_ip, DS_ARG_NONE),
    CHECKER(check_lan_ip, DS_ARG_NONE),
    CHECKER(check_netmask, DS_ARG_NONE),
    {.fn = nullptr, .name = nullptr, .arg_kind = DS_ARG_NONE},
};

#undef CHECKER

const ds_checker_name *ds_checker_lookup(ds_checker_fn fn)
{
    if (!fn)
        return nullptr;
    for (const ds_checker_name *c = ds_checker_names; c->fn; ++c) {
        if (c->fn == fn)
            return c;
    }
    return nullptr;
}
