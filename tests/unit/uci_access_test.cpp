// The access layer over a real store: JSON forms, edits and commits.
#include <sys/resource.h>

#include "store/store.h"
#include "uci_test_util.h"

namespace {

struct json_deleter {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_deleter>;

std::string text(json_object *o)
{
    return o ? json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN) : "null";
}

class UciAccess : public ::testing::Test {
protected:
    void SetUp() override
    {
        d.write("pkg", "config kind 'full'\n\toption a 'x'\n\tlist l 'p'\n\tlist l 'q'\n"
                       "config kind 'bare'\n"
                       "config T 'T_1'\n"
                       "config other 'T_2'\n"
                       "config T 'T_3'\n"
                       "config kind\n\toption z '1'\n");
        ctx.reset(d.context());
        txn = std::make_unique<store_txn>(ctx.get());
    }
    store_txn *t() { return txn.get(); }
    uci_dirs d;
    ctx_ptr ctx;
    std::unique_ptr<store_txn> txn; // ends before the context
};

TEST_F(UciAccess, SectionPackageAndTypeForms)
{
    json_ptr full(get_uci_section(ctx.get(), "pkg", "full"));
    EXPECT_EQ(text(full.get()), R"({".name":"full",".type":"kind","a":"x","l":["p","q"]})");
    json_ptr bare(get_uci_section(ctx.get(), "pkg", "bare"));
    EXPECT_EQ(text(bare.get()), R"({".name":"bare",".type":"kind"})");
    EXPECT_EQ(get_uci_section(ctx.get(), "pkg", "nosuch"), nullptr);
    EXPECT_EQ(get_uci_section(ctx.get(), "nopkg", "full"), nullptr);

    json_ptr pkg(get_uci_package(ctx.get(), "pkg"));
    ASSERT_TRUE(pkg);
    EXPECT_EQ(json_object_object_length(pkg.get()), 6);
    json_ptr types(get_uci_section_type(ctx.get(), "pkg", "kind"));
    ASSERT_EQ(json_object_array_length(types.get()), 3u);
    std::string last = text(json_object_array_get_idx(types.get(), 2));
    EXPECT_NE(last.find(R"(":{".name":"cfg06)"), std::string::npos) << last;
    json_ptr none(get_uci_section_type(ctx.get(), "pkg", "absent"));
    EXPECT_EQ(text(none.get()), "[]");
    json_ptr names(get_sec_names_by_type(ctx.get(), "pkg", "T"));
    EXPECT_EQ(text(names.get()), R"(["T_1","T_3"])");
    json_ptr l(get_uci_option(ctx.get(), "pkg", "full", "l"));
    EXPECT_EQ(text(l.get()), R"(["p","q"])");
    EXPECT_EQ(get_uci_option(ctx.get(), "pkg", "full", "nope"), nullptr);
}

TEST_F(UciAccess, EmptyListIsAnEmptyArray)
{
    for (int i = 0; i < 2; i++)
        ASSERT_EQ(delete_opt_value(t(), "pkg", "full", "l", "0"), 0);
    json_ptr full(get_uci_section(ctx.get(), "pkg", "full"));
    EXPECT_EQ(text(full.get()), R"({".name":"full",".type":"kind","a":"x","l":[]})");
}

TEST_F(UciAccess, CountsAndFreeIndex)
{
    EXPECT_EQ(get_sec_type_num(ctx.get(), "pkg", "kind"), 3);
    EXPECT_EQ(get_sec_type_num(ctx.get(), "pkg", "absent"), 0);
    EXPECT_EQ(get_sec_type_num(ctx.get(), "nopkg", "kind"), -1);
    // T_2 exists but is of another type, so it is free for type T.
    EXPECT_EQ(get_free_section_index(ctx.get(), "pkg", "T"), 2);
    EXPECT_EQ(get_free_section_index(ctx.get(), "pkg", "absent"), 1);
    EXPECT_EQ(get_free_section_index(ctx.get(), "nopkg", "T"), -1);
    EXPECT_EQ(section_exist(ctx.get(), "pkg", "T_3"), 1);
    EXPECT_EQ(section_exist(ctx.get(), "pkg", "T_4"), 0);
    EXPECT_EQ(section_exist(ctx.get(), "nopkg", "T_3"), 0);
}

TEST_F(UciAccess, SetSectionWritesStringsIntsAndWholeLists)
{
    json_ptr obj(json_tokener_parse(R"({"a":"y","b":5,"l":["1",2,true,null],"d":true})"));
    EXPECT_EQ(set_uci_section(t(), "pkg", "full", obj.get()), 0);
    json_ptr full(get_uci_section(ctx.get(), "pkg", "full"));
    EXPECT_EQ(text(full.get()), R"({".name":"full",".type":"kind","a":"y","b":"5","l":["1","2"]})");
    // Staged: another context sees it before any commit.
    ctx_ptr other(d.context());
    json_ptr seen(get_uci_section(other.get(), "pkg", "full"));
    EXPECT_EQ(text(seen.get()), text(full.get()));

    json_ptr arr(json_tokener_parse("[1]"));
    EXPECT_EQ(set_uci_section(t(), "pkg", "full", arr.get()), -1);
    EXPECT_EQ(set_uci_section(t(), "pkg", "nosuch", obj.get()), 0); // missing: not an error
    EXPECT_EQ(section_exist(ctx.get(), "pkg", "nosuch"), 0);
    EXPECT_GT(set_uci_section(t(), "nopkg", "full", obj.get()), 0);
}

TEST_F(UciAccess, OptionValues)
{
    EXPECT_STREQ(store_read_opt(ctx.get(), "pkg", "full", "a").text, "x");
    EXPECT_EQ(store_read_opt(ctx.get(), "pkg", "full", "l").text, nullptr);
    struct { const char *value; int expect; } cases[] = {
        {"+12", 12}, {"-3", -1}, {"1a", -1}, {"", 0}, {"007", 7}, {"99999999999", -1}, {"-0", 0},
    };
    for (const auto &c : cases) {
        // An empty value would delete the option, so that case goes in through the file.
        if (*c.value)
            ASSERT_EQ(set_opt_value(t(), "pkg", "bare", "n", c.value), 0);
        else
            d.write("pkg", "config kind 'bare'\n\toption n ''\n");
        ctx_ptr fresh(d.context());
        uci_context *use = *c.value ? ctx.get() : fresh.get();
        EXPECT_EQ(get_opt_int_value(use, "pkg", "bare", "n"), *c.value ? c.expect : -1) << c.value;
    }
    EXPECT_EQ(get_opt_int_value(ctx.get(), "pkg", "bare", "missing"), -1);
    EXPECT_EQ(set_opt_value(t(), "pkg", "nosuch", "n", "1"), -1);
    EXPECT_EQ(delete_opt_value(t(), "pkg", "full", "missing", nullptr), -1);
    EXPECT_EQ(delete_opt_value(t(), "pkg", "full", "a", nullptr), 0);
    EXPECT_EQ(store_read_opt(ctx.get(), "pkg", "full", "a").text, nullptr);
}

TEST_F(UciAccess, SectionLifecycleAndCommits)
{
    EXPECT_EQ(add_new_section(t(), "pkg", "T", "T_2b"), 0);
    EXPECT_EQ(add_new_section(t(), "pkg", "T", "bad-name"), -1);
    EXPECT_EQ(rename_section(t(), "pkg", "T_2b", "T_4"), 0);
    EXPECT_EQ(rename_section(t(), "pkg", "gone", "T_5"), -1);
    EXPECT_EQ(rename_section(t(), "pkg", "T_1", "T_3"), -1); // uci would answer 0 and not rename
    EXPECT_EQ(delete_section(t(), "pkg", "bare"), 0);
    EXPECT_EQ(delete_section(t(), "pkg", "bare"), -1);
    EXPECT_EQ(delete_section_type(t(), "pkg", "kind"), 0);
    EXPECT_EQ(delete_section_type(t(), "nopkg", "kind"), -1);
    std::string before = d.read("pkg");
    EXPECT_EQ(store_txn_commit(t(), "pkg", false), 0);
    EXPECT_NE(d.read("pkg"), before);
    EXPECT_EQ(d.read("pkg"), "\nconfig T 'T_1'\n\nconfig other 'T_2'\n\nconfig T 'T_3'\n\nconfig T 'T_4'\n\n");
    EXPECT_EQ(d.changes("pkg"), "");
    EXPECT_EQ(store_txn_commit(t(), "nopkg", false), -1);
}

TEST_F(UciAccess, LightCommitIsVisibleWithoutRewritingTheFile)
{
    std::string before = d.read("pkg");
    ASSERT_EQ(set_opt_value(t(), "pkg", "full", "a", "light"), 0);
    ASSERT_EQ(store_txn_commit(t(), "pkg", true), 0);
    EXPECT_EQ(d.read("pkg"), before); // flash copy untouched (it was just written)
    ctx_ptr other(d.context());
    EXPECT_STREQ(store_read_opt(other.get(), "pkg", "full", "a").text, "light");
    // An ordinary commit of the package later writes it out.
    ASSERT_EQ(commit_in(other.get(), "pkg"), 0);
    EXPECT_NE(d.read("pkg").find("option a 'light'"), std::string::npos);
    EXPECT_EQ(store_txn_commit(t(), "nopkg", true), -1);
}

// A save cut short (here by a file size limit, as a full /tmp would) leaves
// no torn line: the change log is back to what it was, the request fails,
// and later changes are read.
TEST_F(UciAccess, FailedSaveLeavesNoTornChange)
{
    ASSERT_EQ(set_opt_value(t(), "pkg", "full", "a", "first"), 0);
    std::string before = d.changes("pkg");
    ASSERT_FALSE(before.empty());
    struct rlimit old{}, small{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    small = old;
    small.rlim_cur = before.size() + 10;
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int rc = set_opt_value(t(), "pkg", "full", "a", std::string(100, 'z').c_str());
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(d.changes("pkg"), before);

    // A torn line left by a crash is cut before the next change is appended.
    std::ofstream(d.save + "/pkg", std::ios::app) << "pkg.full.a='torn";
    ctx_ptr next(d.context());
    store_txn tn(next.get());
    ASSERT_EQ(set_opt_value(&tn, "pkg", "full", "a", "second"), 0);
    ASSERT_EQ(store_txn_commit(&tn, "pkg", true), 0);
    ctx_ptr reader(d.context());
    EXPECT_STREQ(store_read_opt(reader.get(), "pkg", "full", "a").text, "second");
}

} // namespace
