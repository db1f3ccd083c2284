// The flush's crash states, one row per step a kill can interrupt: what
// start-up makes of each, file and change log byte for byte. A change is
// never lost and never applied twice (the list items show a repeat).
#include "store/store.h"
#include "uci_test_util.h"

namespace {

// The process reads DSD_ROOT once: one scratch root for the binary, laid
// out as the system's (removed at exit).
const uci_dirs &root(void)
{
    static uci_dirs dirs;
    static const bool ready = [] {
        std::string etc = dirs.root + "/etc", tmp = dirs.root + "/tmp";
        if (mkdir(etc.c_str(), 0755) != 0 || mkdir(tmp.c_str(), 0755) != 0 ||
            rename(dirs.conf.c_str(), (etc + "/config").c_str()) != 0 ||
            rename(dirs.save.c_str(), (tmp + "/.uci").c_str()) != 0)
            abort();
        dirs.conf = etc + "/config";
        dirs.save = tmp + "/.uci";
        setenv("DSD_ROOT", dirs.root.c_str(), 1);
        return true;
    }();
    (void)ready;
    return dirs;
}

void put(const std::string &path, const std::string &body)
{
    std::string dir = path.substr(0, path.rfind('/'));
    mkdir(dir.c_str(), 0700);
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    ASSERT_EQ(fwrite(body.data(), 1, body.size(), f), body.size());
    fclose(f);
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

const char kOld[] = "config s 's'\n\tlist items '1'\n";
const char kPrefix[] = "|pkg.s.items='2'\n|pkg.s.items='3'\n"; // journalled
const char kTail[] = "|pkg.s.items='4'\n";                    // appended meanwhile

// Where a kill left the flush: which files exist and what they hold.
struct crash_row {
    const char *step;
    bool work, temp, journal, renamed, cut;
};

const crash_row kRows[] = {
    {.step = "copying the log", .work = true, .temp = false, .journal = false, .renamed = false, .cut = false},
    {.step = "temporary written", .work = true, .temp = true, .journal = false, .renamed = false, .cut = false},
    {.step = "journalled", .work = false, .temp = true, .journal = true, .renamed = false, .cut = false},
    {.step = "renamed in", .work = false, .temp = false, .journal = true, .renamed = true, .cut = false},
    {.step = "log cut", .work = false, .temp = false, .journal = true, .renamed = true, .cut = true},
    {.step = nullptr, .work = false, .temp = false, .journal = false, .renamed = false, .cut = false},
};

TEST(UciRecovery, EveryInterruptedFlushStepComesBackWhole)
{
    const uci_dirs &d = root();
    const std::string file = d.conf + "/pkg", log = d.save + "/pkg";
    const std::string temp = d.conf + "/.dsd-tmp-pkg", journal = d.save + "/.dsd-flush/pkg";
    const std::string work = d.save + "/.dsd-flush-work/pkg";
    // The merged file as the flush writes it.
    put(file, kOld);
    put(log, kPrefix);
    ASSERT_EQ(uci_flush_package("pkg"), 0);
    const std::string merged = d.read("pkg");
    ASSERT_NE(merged.find("'3'"), std::string::npos);

    for (const crash_row *r = kRows; r->step; r++) {
        put(file, r->renamed ? merged : kOld);
        put(log, r->cut ? std::string(kTail) : std::string(kPrefix) + kTail);
        if (r->work)
            put(work, std::string(kPrefix).substr(0, 10));
        if (r->temp)
            put(temp, merged);
        if (r->journal)
            put(journal, kPrefix);
        uci_store_recover();
        EXPECT_EQ(d.read("pkg"), r->renamed ? merged : std::string(kOld)) << r->step;
        EXPECT_EQ(d.changes("pkg"), r->renamed ? std::string(kTail) : std::string(kPrefix) + kTail)
            << r->step;
        EXPECT_FALSE(exists(temp) || exists(journal) || exists(work)) << r->step;
        // The next flush applies each item once.
        ASSERT_EQ(uci_flush_package("pkg"), 0) << r->step;
        ctx_ptr ctx(dsd_uci_alloc());
        json_object *items = get_uci_option(ctx.get(), "pkg", "s", "items");
        ASSERT_TRUE(items) << r->step;
        EXPECT_STREQ(json_object_to_json_string_ext(items, 0), "[\"1\",\"2\",\"3\",\"4\"]") << r->step;
        json_object_put(items);
    }
}

} // namespace
