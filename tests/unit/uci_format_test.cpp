// The host store must read and write the files a device has, unchanged.
#include "store/store.h"
#include "uci_test_util.h"

namespace {

const char *opt(uci_context *ctx, const char *tuple)
{
    static thread_local std::string copy;
    copy = tuple;
    uci_ptr ptr{};
    if (uci_lookup_ptr(ctx, &ptr, copy.data(), true) != UCI_OK || !ptr.o ||
        ptr.o->type != UCI_TYPE_STRING)
        return nullptr;
    return ptr.o->v.string;
}

const char kTricky[] =
    "# leading comment\n"
    "package 'tricky'\n"
    "\n"
    "config sys 'main'   # trailing comment\n"
    "\toption plain word\n"
    "\toption sq 'it'\\''s'\n"
    "\toption dq \"say \\\"hi\\\" \\\\ back\"\n"
    "\toption multi 'line1\n"
    "line2'\n"
    "\toption utf8 '\xe6\x91\x84\xe5\x83\x8f\xe5\xa4\xb4 \xe2\x9c\x93'\n"
    "\toption joined 'a'\"b\"c\n"
    "\tlist empty_item ''\n"
    "\tlist l1 a\n"
    "\tlist l1 \"b c\"\n"
    "config anon\n"
    "\toption x 1\n"
    "config anon\n"
    "\toption x 2; option y 3\n"
    "c short 'n1'\n"
    "\to k v\n"
    "\tl k2 v2\n"
    "\n"
    "config sys 'main'\n"
    "\toption merged yes\n"
    "\toption plain replaced\n";

TEST(UciFormat, ReadsQuotingEscapesListsAndMergedSections)
{
    uci_dirs d;
    d.write("tricky", kTricky);
    ctx_ptr ctx(d.context());
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx.get(), "tricky", &p), UCI_OK);

    EXPECT_STREQ(opt(ctx.get(), "tricky.main.plain"), "replaced");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.sq"), "it's");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.dq"), "say \"hi\" \\ back");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.multi"), "line1\nline2");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.utf8"), "\xe6\x91\x84\xe5\x83\x8f\xe5\xa4\xb4 \xe2\x9c\x93");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.joined"), "abc");
    EXPECT_STREQ(opt(ctx.get(), "tricky.main.merged"), "yes");
    EXPECT_EQ(uci_list(ctx.get(), "tricky.main.l1"), (std::vector<std::string>{"a", "b c"}));
    EXPECT_EQ(uci_list(ctx.get(), "tricky.main.empty_item"), (std::vector<std::string>{""}));
    EXPECT_STREQ(opt(ctx.get(), "tricky.n1.k"), "v");
    // As on the device, an unquoted value right before ';' loses the rest of the line.
    EXPECT_EQ(opt(ctx.get(), "tricky.@anon[1].y"), nullptr);
    EXPECT_STREQ(opt(ctx.get(), "tricky.@anon[-1].x"), "2");

    // Sections keep file order; the merged one stays where it first appeared.
    std::vector<std::string> names;
    uci_element *e;
    uci_foreach_element(&p->sections, e) names.push_back(e->name);
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(names[0], "main");
    EXPECT_EQ(names[3], "n1");
    // Anonymous names: "cfg", ordinal, 16-bit hash of the type alone, and
    // stable across loads.
    EXPECT_EQ(names[1].rfind("cfg02", 0), 0u);
    EXPECT_EQ(names[1].size(), 9u);
    EXPECT_EQ(names[2].rfind("cfg03", 0), 0u);
    EXPECT_EQ(names[1].substr(5), names[2].substr(5));
    ctx_ptr again(d.context());
    uci_package *p2 = nullptr;
    ASSERT_EQ(uci_load(again.get(), "tricky", &p2), UCI_OK);
    EXPECT_EQ(list_to_element(p2->sections.next->next)->name, names[1]);
}

// As on the device: a named section called like the generated name of an
// anonymous section of another type is a parse error; of the same type it is
// that section.
TEST(UciFormat, NamedSectionWithAGeneratedNameOfAnotherTypeIsAParseError)
{
    uci_dirs d;
    d.write("first", "config a\n\toption x 1\n");
    ctx_ptr ctx(d.context());
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx.get(), "first", &p), UCI_OK);
    const std::string generated = list_to_element(p->sections.next)->name;
    d.write("clash", "config a\n\toption x 1\nconfig b '" + generated + "'\n\toption y 2\n");
    EXPECT_EQ(uci_load(ctx.get(), "clash", &p), UCI_ERR_PARSE);
    d.write("merged", "config a\n\toption x 1\nconfig a '" + generated + "'\n\toption y 2\n");
    ASSERT_EQ(uci_load(ctx.get(), "merged", &p), UCI_OK);
    EXPECT_STREQ(opt(ctx.get(), ("merged." + generated + ".x").c_str()), "1");
    EXPECT_STREQ(opt(ctx.get(), ("merged." + generated + ".y").c_str()), "2");
}

TEST(UciFormat, RejectsMalformedFiles)
{
    const char *bad[] = {
        "config a 'x\n\toption b c\n",        // unterminated quote
        "option a b\n",                       // option before any section
        "config a 'bad-name'\n",              // '-' is not allowed in a section name
        "config a x\n\tfrobnicate k v\n",     // unknown command
        "config\n",                           // section without a type
        "config a x\n\toption 'b.c' v\n",     // option name with a dot
    };
    for (const char *text : bad) {
        uci_dirs d;
        d.write("bad", text);
        ctx_ptr ctx(d.context());
        uci_package *p = nullptr;
        EXPECT_EQ(uci_load(ctx.get(), "bad", &p), UCI_ERR_PARSE) << text;
    }
    uci_dirs d;
    ctx_ptr ctx(d.context());
    uci_package *p = nullptr;
    EXPECT_EQ(uci_load(ctx.get(), "missing", &p), UCI_ERR_NOTFOUND);
    d.write("twice", "config a b\n");
    EXPECT_EQ(uci_load(ctx.get(), "twice", &p), UCI_OK);
    EXPECT_EQ(uci_load(ctx.get(), "twice", &p), UCI_ERR_DUPLICATE);
}

int set(uci_context *ctx, const char *tuple)
{
    std::string copy = tuple;
    uci_ptr ptr{};
    int rc = uci_lookup_ptr(ctx, &ptr, copy.data(), true);
    return rc ? rc : uci_set(ctx, &ptr);
}

TEST(UciChanges, StagedChangesReplayInOrderInAnotherContext)
{
    uci_dirs d;
    d.write("pkg", "config t 'sec'\n\toption keep 'k'\n\toption gone 'g'\n\toption o 'old'\n");
    {
        ctx_ptr a(d.context());
        ASSERT_EQ(set(a.get(), "pkg.sec.o=it's new"), UCI_OK);
        ASSERT_EQ(set(a.get(), "pkg.sec.o=it's new"), UCI_OK); // same value: no record
        std::string t = "pkg.sec.l=x";
        uci_ptr ptr{};
        ASSERT_EQ(uci_lookup_ptr(a.get(), &ptr, t.data(), true), UCI_OK);
        ASSERT_EQ(uci_add_list(a.get(), &ptr), UCI_OK);
        t = "pkg.sec.gone";
        ASSERT_EQ(uci_lookup_ptr(a.get(), &ptr, t.data(), true), UCI_OK);
        ASSERT_EQ(uci_delete(a.get(), &ptr), UCI_OK);
        t = "pkg.sec=renamed";
        ASSERT_EQ(uci_lookup_ptr(a.get(), &ptr, t.data(), true), UCI_OK);
        ASSERT_EQ(uci_rename(a.get(), &ptr), UCI_OK);
        ASSERT_EQ(set(a.get(), "pkg.renamed.after=1"), UCI_OK); // only valid after the rename
        ASSERT_EQ(uci_save(a.get(), ptr.p), UCI_OK);
    }
    EXPECT_EQ(d.changes("pkg"),
              "pkg.sec.o='it'\\''s new'\n|pkg.sec.l='x'\n-pkg.sec.gone\n@pkg.sec='renamed'\n"
              "pkg.renamed.after='1'\n");
    EXPECT_EQ(d.read("pkg").find("renamed"), std::string::npos); // the file is untouched

    ctx_ptr b(d.context());
    EXPECT_STREQ(opt(b.get(), "pkg.renamed.o"), "it's new");
    EXPECT_STREQ(opt(b.get(), "pkg.renamed.keep"), "k");
    EXPECT_STREQ(opt(b.get(), "pkg.renamed.after"), "1");
    EXPECT_EQ(opt(b.get(), "pkg.renamed.gone"), nullptr);
    EXPECT_EQ(uci_list(b.get(), "pkg.renamed.l"), std::vector<std::string>{"x"});

    std::string t = "pkg";
    uci_ptr ptr{};
    ASSERT_EQ(uci_lookup_ptr(b.get(), &ptr, t.data(), true), UCI_OK);
    ASSERT_EQ(uci_commit(b.get(), &ptr.p, false), UCI_OK);
    EXPECT_EQ(d.changes("pkg"), "");
    EXPECT_EQ(d.read("pkg"), "\nconfig t 'renamed'\n\toption keep 'k'\n\toption o 'it'\\''s new'\n"
                             "\tlist l 'x'\n\toption after '1'\n\n");
    ctx_ptr c(d.context());
    EXPECT_STREQ(opt(c.get(), "pkg.renamed.o"), "it's new"); // committed once, not replayed twice
    EXPECT_EQ(uci_list(c.get(), "pkg.renamed.l"), std::vector<std::string>{"x"});
}

} // namespace
