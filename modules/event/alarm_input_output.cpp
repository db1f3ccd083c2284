// Module "alarm_input_output". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module alarm_input_output_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "alarm_input_output",
    .package = "alarm_input_output",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int alarm_input_output_module_init(void)
{
    return add_module_node(&alarm_input_output_module);
}
