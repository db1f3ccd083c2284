// mkconfig against the registry: on a fresh root every registered named
// section of every module with a package is there to read, and the section
// type rule of the fallback writer.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <uci.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "model/registry.h"
#include "model_test_util.h"
#include "../e2e/harness/exec_wrapper.h"
#include "platform/uci_access.h"

namespace {

model_scratch_root scratch;

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
    const ds_module *head = reinterpret_cast<const ds_module *>(root);
    for (const ds_module *m = root->next; m != head; m = m->next) {
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
    EXPECT_NE(system((tool + "12x 2>/dev/null").c_str()), 0);
    EXPECT_NE(system((tool_command("mkconfig") + " 2>/dev/null").c_str()), 0);
}

} // namespace
