// The detection family (motion, intrusion, line crossing, tamper, face
// comparison): one shape, described per member by a det_member row, and the
// handlers every member binds in its keyword and section tables.
#pragma once

#include <cstdint>

#include "model/registry.h"

struct json_object;

enum det_region_form {
    DET_REGION_NONE,
    DET_REGION_RECT, // x_coor, y_coor, width, height
    DET_REGION_QUAD, // pt1_x, pt1_y ... pt4_x, pt4_y
    DET_REGION_LINE, // pt1_x, pt1_y, pt2_x, pt2_y, direction
};

struct det_default {
    const char *option;
    const char *value;
};

struct det_member {
    const char *module;          // also the package
    const char *kind;            // event kind told to the channel manager
    const char *switch_fmt;      // "chn%d_motion_det"
    const char *notif_fmt;       // "chn%d_motion_notif_list"
    const char *notif_extra_fmt; // a second notification section per channel,
                                 // named with the channel twice; or null
    const char *plan_fmt;        // "chn%d_alarm_setting"
    const char *restart_method;  // of "chm_event_detect"
    const char *schedule_method; // of "chm_event_detect" after schedule writes, or null
    const char *record_method;   // of "record"
    det_region_form region;
    int max_regions;             // per channel
    bool channels_by_count;      // channel bounded by the configured count, not 128
    int32_t region_code;         // a region off the 10000 grid
    const det_default *switch_defaults; // ends with a null option
    const ds_opt *switch_opts;   // option rows, ending with a null name
    const ds_opt *notif_opts;
    const ds_opt *plan_opts;
    const ds_opt *region_opts;   // null for members without regions
};

enum { DET_GRID = 10000, DET_MAX_REGIONS = 128 };

// 128 characters, '1' at n-1 for each channel n in the list, '0' elsewhere.
void det_mask_set(char mask[DS_MAX_CHANNELS + 1], int channel);
void det_mask_clear(char mask[DS_MAX_CHANNELS + 1]);

// The member's reconfiguration calls: "record" <record_method>, then
// "chm_event_detect" <restart_method> {"channel": mask}; the reply is kept as
// the response. 0, -70101 (no bus) or -70102.
int det_notify(ds_context *ctx, const det_member *m, const char *mask);

// Tells the event-detection service a channel's light and sound alarm
// switches (1 on, 0 off, -1 unknown). 0 or -10000.
int set_channel_alarm_list(int index, int light, int sound, const char *kind);

// Reads a channel's stored light and sound switches and tells them with
// set_channel_alarm_list. 0 or -10000.
int det_tell_switches(ds_context *ctx, const det_member *m, int channel);

// Section builder: the per-channel rows in order (switch, notification,
// schedule, then the extra notification section where the member has one)
// for the configured channel count, the notification rows calling for the
// module's after-commit hook. 0 or -1. Start-up only.
int det_build_rows(ds_module *mod, const det_member *m);

// Keyword handlers and the service callback, parameterised by member.
int det_add_regions(ds_context *ctx, const det_member *m, json_object *arg);
int det_get_regions(ds_context *ctx, const det_member *m, json_object *arg);
int det_set_default(ds_context *ctx, const det_member *m, json_object *arg);
int det_set_alarm(ds_context *ctx, const det_member *m, json_object *arg);
int det_set_notif(ds_context *ctx, const det_member *m, json_object *arg);
int det_after_apply_notif_list(ds_context *ctx, const det_member *m);
// Before-save callback of the "notif_list" and "plan" types: nothing to do.
int det_nothing_before_save(ds_context *ctx);

// Shared option argument tables.
extern const char *const det_enum_sensitivity[];
extern const char *const det_enum_direction[];

// One-line bindings of the shared handlers to a member, for its keyword and
// section tables: det_kw_add_regions<&member> and so on.
template <const det_member *M> int det_kw_add_regions(ds_context *c, json_object *a) { return det_add_regions(c, M, a); }
template <const det_member *M> int det_kw_get_regions(ds_context *c, json_object *a) { return det_get_regions(c, M, a); }
template <const det_member *M> int det_kw_set_default(ds_context *c, json_object *a) { return det_set_default(c, M, a); }
template <const det_member *M> int det_kw_set_alarm(ds_context *c, json_object *a) { return det_set_alarm(c, M, a); }
template <const det_member *M> int det_kw_set_notif(ds_context *c, json_object *a) { return det_set_notif(c, M, a); }
template <const det_member *M> int det_notif_cb(ds_context *c) { return det_after_apply_notif_list(c, M); }

// Registers a member's module: its per-channel rows, `notif_cb` as its
// after-commit hook, then the node. 0 or -1.
int det_register(ds_module *mod, const det_member *m, ds_sec_cb_fn notif_cb);
