// The channel-manager module: camera keywords forwarded to the device
// manager, checked first, and its answers translated.
#pragma once

#include <cstddef>
#include <cstdint>

struct ds_context;
struct json_object;

// Device-manager status 0..14 to this daemon's codes (n -> -71549 - n);
// anything else -71550.
int32_t map_status(json_object *reply);

// Request field checks (text values).
bool chm_check_prot(const char *v);
bool chm_check_port(const char *v);
bool chm_check_ci(const char *v);
// Text present with lo <= strlen <= hi.
bool chm_check_len(const char *v, size_t lo, size_t hi);
// A device name: present, at most 64 bytes.
bool chm_check_name(const char *v);

// Keyword handlers with a shape of their own.
int do_chm_add_dev(ds_context *ctx, json_object *arg);
int do_chm_add_dev_list(ds_context *ctx, json_object *arg);
int do_chm_del_dev(ds_context *ctx, json_object *arg);
int chm_get_device_list(ds_context *ctx, int mode);
int get_chn_info_by_page(ds_context *ctx, json_object *arg);

// Camera web API and firmware upgrade.
int get_ipc_upgrade_url(ds_context *ctx, json_object *arg);
int ipc_disk_upgrade(ds_context *ctx, json_object *arg);
int ipc_device_info(ds_context *ctx, json_object *arg);
int online_update_check(ds_context *ctx, json_object *arg);
int online_update_check_status(ds_context *ctx, json_object *arg);
int online_update(ds_context *ctx, json_object *arg);
int online_update_progress(ds_context *ctx, json_object *arg);
int online_update_ipc(ds_context *ctx, json_object *arg);
int local_update_ipc(ds_context *ctx, json_object *arg);
int ipc_update_exit(ds_context *ctx, json_object *arg);
int ipc_update_start(ds_context *ctx, json_object *arg);
int get_update_status(ds_context *ctx, json_object *arg);
int do_chm_add_dev_list_zuma(ds_context *ctx, json_object *arg);
int do_chm_edit_dev_url(ds_context *ctx, json_object *arg);
int save_chn_conf(ds_context *ctx, json_object *arg);
