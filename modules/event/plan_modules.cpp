// Shared start-up code of the schedule modules (record, capture, cloud and
// push plans).
#include <cstdlib>

#include "modules/event/detection_tables.h"

int plan_build_rows(ds_module *mod, const char *pattern, const ds_opt *options, ds_sec_cb_fn srvcb)
{
    if (mod->sections)
        return 0;
    int count = model_channel_amount();
    size_t cap = static_cast<size_t>(count) + 1;
    auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
    size_t pos = 0;
    const char *patterns[] = {pattern};
    const ds_opt *opts[] = {options};
    if (!table || model_fill_channel_rows(table, cap, &pos, patterns, opts, 1, count) != 0) {
        free(table);
        return -1;
    }
    for (size_t i = 0; i < pos; i++)
        table[i].srvcb = srvcb;
    mod->sections = table;
    return 0;
}
