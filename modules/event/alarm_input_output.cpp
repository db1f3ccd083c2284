// Module "alarm_input_output": the recorder's sixteen alarm inputs (name,
// contact type, linked channels and outputs, arming schedule) and sixteen
// alarm outputs (name, hold time, schedule), and the two reset keywords.
#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/request.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

const char kPackage[] = "alarm_input_output";
constexpr ds_len_range kNameLen{0, 64};
constexpr ds_int_range kDelayRange{0, 600};

constexpr ds_opt input_opts[] = {
    det_on_off("enabled", -73701),
    ds_opt{.name = "alarm_name", .checker = check_string_type, .arg = &kNameLen, .err_code = -73702},
    ds_opt{.name = "alarm_type", .checker = check_enum_type, .arg = ds_enum_on_off, .err_code = -73703},
    det_end(),
};
constexpr ds_opt input_notif_opts[] = {
    det_on_off("basic_union_enabled", -73704),
    det_on_off("buzzer_enabled", -73705),
    det_on_off("popupwin_enabled", -73706),
    det_on_off("app_enabled", -73707),
    det_on_off("screenshot_enabled", -73708),
    ds_opt{.name = "alarm_output_union", .checker = check_alarm_output_union, .arg = nullptr, .err_code = -73710},
    ds_opt{.name = "record_union", .checker = check_alarm_record_union, .arg = nullptr, .err_code = -73712},
    det_end(),
};
constexpr auto defense_opts = det_plan_options(check_md_plan);
constexpr ds_opt output_opts[] = {
    ds_opt{.name = "alarm_name", .checker = check_string_type, .arg = &kNameLen, .err_code = -73713},
    ds_opt{.name = "delay_time", .checker = check_int_type, .arg = &kDelayRange, .err_code = -73714},
    det_end(),
};

std::string port_name(const char *fmt, int n)
{
    char buf[40];
    snprintf(buf, sizeof buf, fmt, n);
    return buf;
}

// The module's after-commit hook (due when an input section changed): one
// reload of the alarm inputs per request, however many input sections it
// touched; also the last step of the reset keywords.
int set_alarm_input_info(ds_context *ctx)
{
    if (!ctx)
        return -40101;
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return -70101;
    json_object *reply = nullptr;
    ubus_req req{.object = "record", .method = "event_alarm_in_reconfig", .message = nullptr, .timeout = 0};
    int rc = ubus_call(conn, &req, &reply) == 0 ? 0 : -70102;
    json_object_put(reply);
    ubus_free_connection(conn);
    return rc;
}

// The ports a reset keyword names: {"channel": "all"} or {"channel": n}.
bool ports_of(json_object *arg, int *first, int *last)
{
    if (!arg || !jso_is_obj(arg))
        return false;
    const char *all = jso_obj_get_string_origin(arg, "channel");
    if (all && !strcmp(all, "all")) {
        *first = 1;
        *last = DS_ALARM_PORTS;
        return true;
    }
    int32_t n = 0;
    if (jso_obj_get_int(arg, "channel", &n) != 0 || n < 1 || n > DS_ALARM_PORTS)
        return false;
    *first = *last = n;
    return true;
}

int write_all(store_txn *txn, const std::string &sec, const det_default *d)
{
    for (; d->option; d++) {
        if (set_opt_value(txn, kPackage, sec.c_str(), d->option, d->value) != 0)
            return -40101;
    }
    return 0;
}

int set_default_alarm_input(ds_context *ctx, json_object *arg)
{
    int first = 0, last = 0;
    if (!ctx || !ports_of(arg, &first, &last))
        return -40209;
    const det_default notif[] = {{"basic_union_enabled", "off"}, {"buzzer_enabled", "off"},
                                 {"popupwin_enabled", "off"},    {"record_union", "[]"},
                                 {"alarm_output_union", "[]"},   {nullptr, nullptr}};
    store_txn txn(ctx->uci_ctx);
    for (int n = first; n <= last; n++) {
        std::string name = "Alarm In " + std::to_string(n);
        const det_default input[] = {{"alarm_name", name.c_str()}, {"alarm_type", "off"}, {nullptr, nullptr}};
        if (write_all(&txn, port_name("alarm%d_input_set", n), input) != 0 ||
            write_all(&txn, port_name("alarm%d_input_notif_list", n), notif) != 0)
            return -40101;
    }
    if (store_txn_commit(&txn, kPackage, false) != 0) {
        DS_ERR("Commit %s uci failed", kPackage);
        return -40101;
    }
    return set_alarm_input_info(ctx);
}

int set_default_alarm_output(ds_context *ctx, json_object *arg)
{
    int first = 0, last = 0;
    if (!ctx || !ports_of(arg, &first, &last))
        return -40209;
    store_txn txn(ctx->uci_ctx);
    for (int n = first; n <= last; n++) {
        std::string name = "Alarm Out " + std::to_string(n);
        const det_default output[] = {{"alarm_name", name.c_str()}, {"delay_time", "10"}, {nullptr, nullptr}};
        if (write_all(&txn, port_name("alarm%d_output_set", n), output) != 0)
            return -40101;
        std::string plan = port_name("alarm%d_output_defense_setting", n);
        for (const char *day : plan_days_lower) {
            if (set_opt_value(&txn, kPackage, plan.c_str(), day, "[\"0000-2400\"]") != 0)
                return -40101;
        }
    }
    if (store_txn_commit(&txn, kPackage, false) != 0) {
        DS_ERR("Commit %s uci failed", kPackage);
        return -40101;
    }
    return 0;
}

const ds_action actions[] = {
    {.keyword = "set_default_alarm_input", .fn = set_default_alarm_input},
    {.keyword = "set_default_alarm_output", .fn = set_default_alarm_output},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("input_set", input_opts, nullptr, nullptr, DS_SEC_AFTER_COMMIT),
    det_type_row("input_notif_list", input_notif_opts, nullptr, nullptr, DS_SEC_AFTER_COMMIT),
    det_type_row("input_defense_setting", defense_opts.data(), nullptr, nullptr, DS_SEC_AFTER_COMMIT),
    det_type_row("output_set", output_opts, nullptr, nullptr),
    det_type_row("output_defense_setting", defense_opts.data(), nullptr, nullptr),
    ds_sec{},
};

ds_module alarm_input_output_module = {
    .name = "alarm_input_output",
    .package = "alarm_input_output",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 0,
    .lock_actions = 1,
    .after_commit = set_alarm_input_info,
};

// Five rows per port; the three input rows share the input callback.
int build_rows(void)
{
    if (alarm_input_output_module.sections)
        return 0;
    const char *patterns[] = {"alarm%d_input_set", "alarm%d_input_notif_list", "alarm%d_input_defense_setting",
                              "alarm%d_output_set", "alarm%d_output_defense_setting"};
    const ds_opt *options[] = {input_opts, input_notif_opts, defense_opts.data(), output_opts, defense_opts.data()};
    size_t cap = 5 * DS_ALARM_PORTS + 1;
    auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
    size_t pos = 0;
    if (!table || model_fill_channel_rows(table, cap, &pos, patterns, options, 5, DS_ALARM_PORTS) != 0) {
        free(table);
        return -1;
    }
    for (size_t i = 0; i < pos; i++) {
        if (i % 5 < 3)
            table[i].flags = DS_SEC_AFTER_COMMIT;
    }
    alarm_input_output_module.sections = table;
    return 0;
}

} // namespace

int alarm_input_output_module_init(void)
{
    if (build_rows() != 0)
        return -1;
    return add_module_node(&alarm_input_output_module);
}
