// Configuration backup and restore: every uci package (but the secret and
// status ones) in one text bundle, headed by its MD5 and the device name,
// enciphered with DES.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct ds_context;
struct json_object;

// Bundle text of the config directory (device paths "/etc/config/<name>"),
// the excluded packages left out. False when nothing could be packed, or
// when a package holds a line beginning with a marker token (then *bundle
// is left empty: such a package would forge records of its own).
bool backup_bundle(const std::string &confdir, std::string *bundle);
// Splits a bundle into (name, body) pairs; only exact marker lines count.
// False, with nothing returned, when any record is malformed, names a file
// outside the config directory, a package backups never carry, or a
// package twice.
bool backup_split(const std::string &bundle, std::vector<std::pair<std::string, std::string>> *files);

// Keywords of the system module; any worker thread, ctx owned by the caller.
// {"url": destination[, "name": text]}: writes the enciphered backup there.
// 0, -40102 (no destination directory, nothing to pack, I/O), -40209 (path).
// One backup or restore runs at a time (fixed work file names).
int download_conf_gui(ds_context *ctx, json_object *arg);
// {"url": uploaded file}: checks, unpacks and installs a backup. 0, -40209,
// -40102, -50916 (cannot decipher), -50914 (header: digest or device name).
// Nothing in the config directory changes unless every check passed.
int upload_conf_gui(ds_context *ctx, json_object *arg);
int download_conf(ds_context *ctx, json_object *arg);
int upload_conf(ds_context *ctx, json_object *arg);
int config_recovery(ds_context *ctx, json_object *arg);
