// Checkers and helpers over arbitrary text: no crash, and the answers keep
// their invariants (codes from the documented set, accepted texts made only
// of the allowed bytes, parsers agreeing with each other). Covers the generic
// checkers, the weekly-plan, push-plan and linked-list checkers of the event
// modules, and the network checkers that need no configuration.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/checkers.h"
#include "modules/event/plan_checkers.h"
#include "modules/network/net_checkers.h"
#include "platform/trace.h"

static void check_ipv4(const char *text)
{
    int32_t rc = ipv4_check_host(text);
    if (rc != 0 && rc != -40301 && rc != -40302 && rc != -40303 && rc != -40304 && rc != -40309)
        abort();
    if (rc == 0 && (strlen(text) > 15 || strlen(text) < 7))
        abort();
}

// The event and network checkers on one JSON value: 0 or a negative code.
static void check_module_checkers(json_object *v)
{
    static constexpr ds_checker_fn plain[] = {
        check_md_plan, check_tamper_plan, check_facecomparison_plan, check_id_plan,
        check_ld_plan, check_msg_push_plan_format, check_alarm_output_union,
        check_record_union, check_static_pridns, check_secdns, check_gateway,
        check_wan_macaddr, check_any_type, check_readonly_type,
    };
    for (ds_checker_fn fn : plain) {
        if (fn(nullptr, v, nullptr, nullptr, 0) > 0)
            abort();
    }
    for (const plan_form *form : {&plan_form_capture, &plan_form_record}) {
        if (check_plan(nullptr, v, nullptr, form, 0) > 0)
            abort();
    }
    // A row code replaces the union checker's own.
    int32_t rc = check_alarm_output_union(nullptr, v, nullptr, nullptr, -1234);
    if (rc != 0 && rc != -1234)
        abort();
}

// The generic checkers on the text as a JSON string and, when it parses, as
// JSON: every answer is 0 or a negative code.
static void check_checkers(const char *text)
{
    static const ds_int_range ir{0, 100};
    static const ds_double_range dr{-1.0, 1.0};
    static const ds_len_range lr{1, 32};
    json_object *values[2] = {json_object_new_string(text), json_tokener_parse(text)};
    for (json_object *v : values) {
        if (!v)
            continue;
        int32_t rc[] = {
            check_enum_type(nullptr, v, nullptr, ds_enum_on_off, 0),
            check_mixed_enum_type(nullptr, v, nullptr, ds_enum_0_1, 0),
            check_int_type(nullptr, v, nullptr, &ir, 0),
            check_double_type(nullptr, v, nullptr, &dr, 0),
            check_string_type(nullptr, v, nullptr, &lr, 0),
            check_ip_type(nullptr, v, nullptr, nullptr, 0),
        };
        for (int32_t r : rc) {
            if (r > 0)
                abort();
        }
        check_module_checkers(v);
        json_object_put(v);
    }
}

// "address/mask" pairs through the address arithmetic of the network checks.
static void check_address_rules(const std::string &text)
{
    size_t slash = text.find('/');
    std::string addr = text.substr(0, slash);
    std::string mask = slash == std::string::npos ? text : text.substr(slash + 1);
    int32_t rc = net_addr_mask_rule(addr.c_str(), mask.c_str());
    if (rc != 0 && rc != -40314 && rc != -40315 && rc != -40317)
        abort();
    rc = net_netmask_rule(mask.c_str());
    if (rc != 0 && rc != -40305)
        abort();
    int same = net_same_subnet(addr.c_str(), addr.c_str(), mask.c_str());
    if (same < -1 || same > 1 || (rc == 0 && ipv4_check_host(addr.c_str()) == 0 && same != 1))
        abort();
    std::string norm;
    rc = net_mac_check(text.c_str(), &norm);
    if (rc != 0 && rc != -40310 && rc != -40311 && rc != -40312 && rc != -40313)
        abort();
    if (rc == 0 && norm.size() != 17)
        abort();
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    set_trace_level(3); // silent: the checkers trace every refusal
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string in(reinterpret_cast<const char *>(data), size);
    std::string text = in.substr(0, in.find('\0'));
    const char *t = text.c_str();
    check_ipv4(t);
    check_checkers(t);
    is_valid_string(t, text.size());
    ipv4_to_uint(t);
    check_address_rules(text);
    return 0;
}
