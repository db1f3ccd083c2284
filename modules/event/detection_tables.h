// Option rows shared in shape by the detection modules; each member builds
// its own tables from these with its own error codes (base 707 gives
// -70702 ... -70710).
#pragma once

#include <array>

#include "model/checkers.h"
#include "modules/event/detection.h"
#include "modules/event/plan_checkers.h"

inline constexpr ds_int_range det_grid_range{0, 10000};
inline constexpr ds_int_range det_percent_range{0, 100};

constexpr int32_t det_code(int32_t base, int32_t n)
{
    return -(base * 100 + n);
}

constexpr ds_opt det_on_off(const char *name, int32_t code)
{
    return ds_opt{.name = name, .checker = check_enum_type, .arg = ds_enum_on_off, .err_code = code};
}

constexpr ds_opt det_end(void)
{
    return ds_opt{.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0};
}

// The notification switches: the same eleven options in every member.
constexpr std::array<ds_opt, 11> det_notif_options(int32_t base, ds_checker_fn union_checker)
{
    return {{
        det_on_off("app_enabled", det_code(base, 4)),
        det_on_off("client_enabled", det_code(base, 5)),
        det_on_off("screenwarn_enabled", det_code(base, 6)),
        det_on_off("screenshot_enabled", det_code(base, 7)),
        det_on_off("buzzer_enabled", det_code(base, 8)),
        det_on_off("union_enabled", det_code(base, 9)),
        ds_opt{.name = "record_union", .checker = union_checker, .arg = nullptr, .err_code = det_code(base, 10)},
        det_on_off("popupwin_enabled", -40209),
        det_on_off("light_alarm_enabled", -40209),
        det_on_off("sound_alarm_enabled", -40209),
        det_end(),
    }};
}

// The weekly schedule: "enabled" and the seven weekdays.
constexpr std::array<ds_opt, 9> det_plan_options(ds_checker_fn plan_checker)
{
    auto day = [plan_checker](const char *name) {
        return ds_opt{.name = name, .checker = plan_checker, .arg = nullptr, .err_code = -40209};
    };
    return {{
        det_on_off("enabled", -40209), day("monday"), day("tuesday"), day("wednesday"),
        day("thursday"), day("friday"), day("saturday"), day("sunday"), det_end(),
    }};
}

constexpr ds_opt det_grid(const char *name, int32_t code)
{
    return ds_opt{.name = name, .checker = check_int_type, .arg = &det_grid_range, .err_code = code};
}

// The switch section of the members without extra switches.
constexpr std::array<ds_opt, 3> det_switch_options(int32_t base)
{
    return {{
        det_on_off("enabled", det_code(base, 2)),
        ds_opt{.name = "sensitivity", .checker = check_enum_type, .arg = det_enum_sensitivity,
               .err_code = det_code(base, 3)},
        det_end(),
    }};
}

constexpr ds_sec det_type_row(const char *name, const ds_opt *options, ds_sec_cb_fn before,
                              ds_sec_cb_fn service, uint8_t flags = 0)
{
    return ds_sec{.name = name, .data_kind = DS_DATA_UCI, .max_sec = 255, .options = options,
                  .beforesavecb = before, .srvcb = service, .dynamic = nullptr, .flags = flags};
}

// A weekly plan section with a typed-period checker and its argument
// (record, capture and cloud plans); `days` are the seven option names.
constexpr std::array<ds_opt, 9> plan_week_options(const plan_form *form, const char *const *days)
{
    auto day = [form](const char *name) {
        return ds_opt{.name = name, .checker = check_plan, .arg = form, .err_code = -40209};
    };
    return {{
        det_on_off("enabled", -40209), day(days[0]), day(days[1]), day(days[2]), day(days[3]),
        day(days[4]), day(days[5]), day(days[6]), det_end(),
    }};
}

inline constexpr const char *plan_days_lower[] = {"monday", "tuesday", "wednesday", "thursday",
                                                  "friday", "saturday", "sunday"};
inline constexpr const char *plan_days_capital[] = {"Monday", "Tuesday", "Wednesday", "Thursday",
                                                    "Friday", "Saturday", "Sunday"};

// Per-channel rows of one pattern with the given options and service
// callback, for the configured channel count. 0 or -1. Start-up only.
int plan_build_rows(ds_module *mod, const char *pattern, const ds_opt *options, ds_sec_cb_fn srvcb);

// The push-plan modules' one option ("HHMM-HHMM,D") and the push service's
// reload after a change.
extern const ds_opt push_plan_opts[];
int msg_push_plan_reconfig(ds_context *ctx);
