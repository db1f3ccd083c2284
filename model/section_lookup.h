// Section lookup shared by the request pipelines (model-internal).
#pragma once

#include "model/registry.h"

// The section row of `mod` for `name`: by_name 0 looks in the type table;
// by_name 1 looks in the named sections and, on a miss, traces "Section name
// %s not found, check section type." and resolves the section's type row
// (get_sec_type). Null when neither finds it. Any thread.
const ds_sec *find_section(const ds_module *mod, const char *name, int by_name);
