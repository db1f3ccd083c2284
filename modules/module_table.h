// The module list start-up wires into the model: the 60 module
// constructors in registration order, ended by a null row.
#pragma once

struct ds_module_ctor {
    const char *name;
    int (*init)(void);         // null: generic_module_register(name)
};

extern const ds_module_ctor ds_module_table[];

struct ds_model_root;

// Runs the module constructors of ds_module_table in order into the
// process's model root; the first one that fails stops the run. 0, or -1.
// Main thread, start-up.
int model_register(ds_model_root *root);
