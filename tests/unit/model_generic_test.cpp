// Registration of all modules in table order, and the run-time rows the
// generic constructors build from the channel amount.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "model/module_table.h"
#include "model/registry.h"
#include "model_test_util.h"

namespace {

model_scratch_root scratch;

const ds_sec *sec(const ds_module *m, const char *name)
{
    return static_cast<const ds_sec *>(get_ds_node(m, name, DS_NODE_SECTION));
}

size_t rows(const ds_module *m)
{
    size_t n = 0;
    for (const ds_sec *s = m->sections; s && s->name; ++s)
        ++n;
    return n;
}

TEST(GenericModules, RegisteredInTableOrderWithChannelRows)
{
    scratch.write("basic_info", "config basic_info 'basic_info'\n\toption chan_amount '4'\n");
    ds_model_root *root = model_init();
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(model_register(root), 0);
    EXPECT_EQ(root->count, 60u);
    const ds_module *m = root->next;
    for (const ds_module_ctor *c = ds_module_table; c->name; ++c, m = m->next)
        ASSERT_STREQ(m->name, c->name);

    const ds_module *image = get_module_node(root, "image");
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->ch, 1u);
    EXPECT_EQ(rows(image), 9u * 4);
    EXPECT_STREQ(image->sections[0].name, "chn1_switch");
    EXPECT_STREQ(image->sections[9].name, "chn2_switch");
    ASSERT_NE(sec(image, "chn4_smart_white_lamp"), nullptr);
    EXPECT_EQ(sec(image, "chn4_smart_white_lamp")->max_sec, 255);
    EXPECT_EQ(sec(image, "chn5_switch"), nullptr);

    const ds_module *hdd = get_module_node(root, "harddisk_manage");
    EXPECT_EQ(rows(hdd), 2u * 4 + 3u * 8);
    EXPECT_NE(sec(hdd, "ch4_pack"), nullptr);
    EXPECT_NE(sec(hdd, "md_8"), nullptr);
    EXPECT_EQ(sec(hdd, "md_9"), nullptr);
    const ds_module *unusual = get_module_node(root, "unusual_detection");
    EXPECT_NE(sec(unusual, "port4_power_overload"), nullptr);
    EXPECT_EQ(sec(unusual, "port5_shortcut"), nullptr);
    const ds_module *osd = get_module_node(root, "OSD");
    EXPECT_NE(sec(osd, "chn3_label_info_6"), nullptr);
    EXPECT_STREQ(get_module_node(root, "ptz")->package, "ptz_tour");
    EXPECT_EQ(get_module_node(root, "diagnose")->package, nullptr);
    EXPECT_EQ(get_module_node(root, "gb28181")->ch, 0u);
    EXPECT_NE(sec(get_module_node(root, "gb28181"), "v_chn2"), nullptr);
    EXPECT_EQ(model_destory(root), 0);

    // A second registration in the same process keeps the built rows and
    // refuses nothing.
    root = model_init();
    ASSERT_EQ(model_register(root), 0);
    EXPECT_EQ(get_module_node(root, "image")->sections, image->sections);
    EXPECT_NE(ds_module_table[0].init(), 0);  // already registered
    model_destory(root);
}

} // namespace
