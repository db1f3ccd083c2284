// Registry: list building, duplicate refusal, section type
// resolution (substring first, then the stored type), the lookup index, and
// mkconfig against the registry: on a fresh root every registered named
// section of every module with a package is there to read.
#include "model/registry.h"

#include "modules/module_table.h"
#include "model_test_util.h"
#include "store/store.h"

namespace {

model_scratch_root scratch;

int cb_calls = 0;
int count_cb(ds_context *) { return ++cb_calls == 2 ? -7 : 0; }

const ds_sec demo_types[] = {
    {.name = "alarm", .data_kind = 0, .max_sec = 4, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = count_cb, .dynamic = nullptr},
    {.name = "alarm_setting", .data_kind = 0, .max_sec = 4, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {.name = "zone", .data_kind = 0, .max_sec = 4, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {},
};
const ds_opt demo_opts[] = {
    {.name = "enabled", .checker = nullptr, .arg = nullptr, .err_code = -1},
    {},
};
ds_sec demo_secs[] = {
    {.name = "main", .data_kind = 0, .max_sec = 1, .options = demo_opts,
     .beforesavecb = nullptr, .srvcb = count_cb, .dynamic = nullptr},
    {},
};

ds_module make(const char *name)
{
    return ds_module{.name = name, .package = name,
                     .sections = demo_secs, .sec_types = demo_types,
                     .actions = nullptr, .ch = 0, .lock_actions = 0};
}

TEST(Registry, AddKeepsOrderAndRefusesDuplicates)
{
    ds_model_root *root = model_init();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(get_model_root(), root);
    ds_module a = make("a"), b = make("b"), a2 = make("a");
    EXPECT_EQ(model_add(root, &a), 0);
    EXPECT_EQ(add_module_node(&b), 0);
    EXPECT_EQ(model_add(root, &a2), -1);
    EXPECT_EQ(model_add(root, nullptr), -1);
    EXPECT_EQ(root->in_order[0], &a);
    EXPECT_EQ(root->in_order[1], &b);
    EXPECT_EQ(get_module_node(root, "b"), &b);
    EXPECT_EQ(get_module_node(root, "c"), nullptr);
    EXPECT_EQ(model_destory(root), 0);
    EXPECT_EQ(add_module_node(&a), -1);  // no root any more
}

TEST(Registry, SecTypeSubstringFirstThenStoredType)
{
    ds_module m = make("regdemo");
    // The earlier, shorter "alarm" wins over the exact "alarm_setting".
    EXPECT_EQ(get_sec_type(&m, "chn1_alarm_setting"), &demo_types[0]);
    // No substring match: the stored type decides, read from the package
    // named after the module.
    scratch.write("regdemo", "config zone 'front'\n\toption a '1'\n\n"
                             "config other 'back'\n");
    EXPECT_EQ(get_sec_type(&m, "front"), &demo_types[2]);
    EXPECT_EQ(get_sec_type(&m, "back"), nullptr);
    EXPECT_EQ(get_sec_type(&m, "missing"), nullptr);
    m.package = "elsewhere";  // the package field is not consulted
    EXPECT_EQ(get_sec_type(&m, "front"), &demo_types[2]);
    m.sec_types = nullptr;
    EXPECT_EQ(get_sec_type(&m, "chn1_alarm_setting"), nullptr);
}

TEST(Registry, LargeTablesLookUpThroughTheIndex)
{
    static const char *const patterns[] = {"chn%d_a", "chn%d_b"};
    ds_sec big[64] = {};
    size_t pos = 0;
    ASSERT_EQ(model_fill_channel_rows(big, 64, &pos, patterns, nullptr, 2, 30), 0);
    big[pos] = big[0];  // a repeated name: the first row must win
    big[pos].max_sec = 7;
    ds_model_root *root = model_init();
    ds_module m = make("big");
    m.sections = big;
    ASSERT_EQ(model_add(root, &m), 0);
    EXPECT_EQ(get_ds_node(&m, "chn30_b", DS_NODE_SECTION), &big[59]);
    EXPECT_EQ(get_ds_node(&m, "chn1_a", DS_NODE_SECTION), &big[0]);
    EXPECT_EQ(get_ds_node(&m, "chn31_a", DS_NODE_SECTION), nullptr);
    model_destory(root);
    for (size_t i = 0; i < pos; ++i)
        free(const_cast<char *>(big[i].name));
}

TEST(Registry, ChannelAmountClamped)
{
    EXPECT_EQ(model_channel_amount(), 128); // absent
    for (const auto &[value, want] : {std::pair{"16", 16}, {"500", 128}, {"0", 1}, {"x", 128}}) {
        scratch.write("basic_info", std::string("config basic_info 'basic_info'\n\toption chan_amount '") + value + "'\n");
        EXPECT_EQ(model_channel_amount(), want) << value;
    }
}

TEST(Mkconfig, EveryRegisteredNamedSectionIsStored)
{
    std::string tool = std::string(DSD_TOOLS_DIR) + "/mkconfig";
    ASSERT_EQ(access(tool.c_str(), X_OK), 0) << "build the mkconfig target first";
    std::string cmd = tool_command("mkconfig") + " '" + scratch.root + "/etc/config' 128 >/dev/null";
    ASSERT_EQ(system(cmd.c_str()), 0);
    EXPECT_NE(scratch.read("basic_info").find("option chan_amount '128'"), std::string::npos);
    EXPECT_NE(scratch.read("system").find("config system 'sys'"), std::string::npos);
    ds_model_root *root = model_init();
    ASSERT_EQ(model_register(root), 0);
    uci_context *uci = dsd_uci_alloc();
    ASSERT_NE(uci, nullptr);
    int checked = 0;
    for (uint32_t i = 0; i < root->count; ++i) {
        const ds_module *m = root->in_order[i];
        if (!m->package)
            continue;
        EXPECT_EQ(get_sec_type_num(uci, m->package, "no_such_type"), 0) << m->package;
        for (const ds_sec *s = m->sections; s && s->name; ++s) {
            if (s->data_kind != DS_DATA_UCI || s->dynamic)
                continue;
            EXPECT_EQ(section_exist(uci, m->package, s->name), 1) << m->name << " " << s->name;
            ++checked;
        }
    }
    EXPECT_GT(checked, 128 * 30);
    // Generic sections are typed by their name without the channel prefix.
    json_object *sec = get_uci_section(uci, "OSD", "chn7_label_info_3");
    ASSERT_NE(sec, nullptr);
    EXPECT_STREQ(json_object_get_string(json_object_object_get(sec, ".type")), "label_info_3");
    json_object_put(sec);
    sec = get_uci_section(uci, "harddisk_manage", "harddisk_8");
    ASSERT_NE(sec, nullptr);
    EXPECT_STREQ(json_object_get_string(json_object_object_get(sec, ".type")), "harddisk");
    json_object_put(sec);
    uci_free_context(uci);
    model_destory(root);
}

TEST(Mkconfig, RefusesBadChannelCounts)
{
    std::string tool = tool_command("mkconfig") + " '" + scratch.root + "/x' ";
    EXPECT_NE(system((tool + "0 2>/dev/null").c_str()), 0);
    EXPECT_NE(system((tool + "129 2>/dev/null").c_str()), 0);
}

} // namespace
