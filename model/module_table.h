// The 60 module constructors in registration order, ended by a null row.
#pragma once

struct ds_module_ctor {
    const char *name;
    int (*init)(void);
};

extern const ds_module_ctor ds_module_table[];
