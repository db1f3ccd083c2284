// Fallback packages for every registered module that its family writer left
// out: one section per named row, so "get" of any registered section answers
// out of the box on a fresh root.
#pragma once

#include <string>

struct ds_model_root;

// The uci section type written for a run-time section name: the name without
// its channel/port prefix ("chn3_cover" -> "cover", "alarm2_input_set" ->
// "input_set"), else without a trailing number ("harddisk_3" -> "harddisk",
// "v_chn3" -> "v_chn"), else the name itself.
std::string mkconfig_section_type(const char *name);

// Writes <confdir>/<package> for each module of `root` whose package file
// does not exist yet. 0, or -1 when a file cannot be written.
int mkconfig_write_generic(const char *confdir, const ds_model_root *root);

// Writes text to <confdir>/<package> through a temporary file and rename.
int mkconfig_write_package(const char *confdir, const char *package, const std::string &text);

// Whether <confdir>/<package> exists.
bool mkconfig_package_exists(const char *confdir, const char *package);
