// Module constructors, run by model_register in the order of
// modules/module_table.cpp. Each fills its run-time section rows and
// registers its descriptor; 0 on success.
#pragma once

int alarm_input_output_module_init(void);
int capture_plan_module_init(void);
int chm_module_init(void);
int intrusion_detection_module_init(void);
int linecross_detection_module_init(void);
int motion_detection_module_init(void);
int msg_push_plan_module_init(void);
int protocol_module_init(void);
int record_plan_module_init(void);
int system_module_init(void);
int tamper_detection_module_init(void);
int user_management_module_init(void);
int zuma_msg_push_plan_module_init(void);
int cloud_storage_module_init(void);
int face_comparison_module_init(void);
int statistics_module_init(void); // the daemon's own live figures

// Registers the generic module called `name` (modules/generic: the modules
// that are one row of data each, with no behaviour of their own). 0, or -1
// when there is none or its rows cannot be built. Start-up only.
int generic_module_register(const char *name);
