// Module "face_comparison". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module face_comparison_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "face_comparison",
    .package = "face_comparison",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
};

int face_comparison_module_init(void)
{
    return add_module_node(&face_comparison_module);
}
