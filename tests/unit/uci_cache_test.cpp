// The read cache in-process: its answers are the access layer's byte for
// byte, it stays within its size, and with writers on several threads no
// reader goes back in time and every writer reads its own write.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <uci.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "store/store.h"

namespace {

const std::string &test_root(void);

void remove_root(void)
{
    std::string cmd = "rm -rf " + test_root();
    if (system(cmd.c_str()) != 0)
        fprintf(stderr, "cannot remove %s\n", test_root().c_str());
}

// The process reads DSD_ROOT once, so every test shares one root. The name
// is never freed: remove_root runs after static destructors.
const std::string &test_root(void)
{
    static const std::string &root = *new std::string([] {
        char tmpl[] = "/tmp/dsd-cache-XXXXXX";
        std::string r = mkdtemp(tmpl);
        std::string cmd = "mkdir -p " + r + "/etc/config " + r + "/tmp/.uci";
        if (system(cmd.c_str()) != 0)
            abort();
        setenv("DSD_ROOT", r.c_str(), 1);
        atexit(remove_root);
        return r;
    }());
    return root;
}

void write_package(const std::string &name, const std::string &text)
{
    std::ofstream(test_root() + "/etc/config/" + name, std::ios::binary) << text;
}

struct ctx_free {
    void operator()(uci_context *c) const { uci_free_context(c); }
};
using ctx_ptr = std::unique_ptr<uci_context, ctx_free>;

std::string text_of(json_object *obj)
{
    std::string s = obj ? json_object_to_json_string(obj) : "(null)";
    json_object_put(obj);
    return s;
}

int int_option(const char *package, const char *section, const char *opt)
{
    uci_snapshot_ref snap = uci_cache_open(package);
    if (!snap) { // declined (files too fresh): read as the callers then do
        char *v = get_opt_value_dup(package, section, opt);
        int n = v ? atoi(v) : -1;
        free(v);
        return n;
    }
    json_object *sec = uci_snapshot_section(*snap, section);
    json_object *val = nullptr;
    int v = json_object_object_get_ex(sec, opt, &val) ? atoi(json_object_get_string(val)) : 0;
    json_object_put(sec);
    return v;
}

TEST(UciCache, AnswersAreTheAccessLayersByteForByte)
{
    write_package("forms", "config a 'one'\n\toption x 'v 1'\n\tlist l 'p'\n\tlist l 'q'\n"
                           "config b\n\toption y \"it's\"\n"
                           "config a 'two'\n"
                           "config a 'one'\n\toption z '\xc3\xa9'\n");
    // Staged but uncommitted changes are part of what readers see.
    ctx_ptr ctx(dsd_uci_alloc());
    ASSERT_EQ(set_opt_value(ctx.get(), "forms", "two", "w", "staged"), 0);
    ctx_ptr fresh(dsd_uci_alloc());
    uci_snapshot_ref snap = uci_cache_open("forms");
    ASSERT_TRUE(snap);
    json_object *pkg = get_uci_package(fresh.get(), "forms");
    json_object_object_foreach(pkg, name, sec) {
        (void)sec;
        EXPECT_EQ(text_of(uci_snapshot_section(*snap, name)),
                  text_of(get_uci_section(fresh.get(), "forms", name)));
    }
    json_object_put(pkg);
    for (const char *type : {"a", "b", "none"})
        EXPECT_EQ(text_of(uci_snapshot_section_type(*snap, type)),
                  text_of(get_uci_section_type(fresh.get(), "forms", type)));
    EXPECT_EQ(uci_snapshot_section(*snap, "missing"), nullptr);
    EXPECT_FALSE(uci_cache_open("no_such_package"));
    EXPECT_FALSE(uci_cache_open("../etc/config/forms"));
}

TEST(UciCache, StaysWithinItsSize)
{
    std::string big;
    for (int i = 0; i < 4000; ++i)
        big += "config s 's" + std::to_string(i) + "'\n\toption value '" + std::string(40, 'x') + "'\n";
    for (int p = 0; p < 8; ++p) {
        write_package("big" + std::to_string(p), big);
        // Written by this process: cacheable at once, however fresh.
        uci_cache_drop(("big" + std::to_string(p)).c_str());
        ASSERT_TRUE(uci_cache_open(("big" + std::to_string(p)).c_str()));
        EXPECT_LE(uci_cache_bytes(), static_cast<size_t>(UCI_CACHE_BYTES));
    }
    EXPECT_GT(uci_cache_bytes(), 0u);
}

TEST(UciCache, ReadersNeverGoBackAndWritersReadTheirOwnWrites)
{
    write_package("race", "config s 's'\n\toption w0 '0'\n\toption w1 '0'\n");
    const int rounds = 40;
    std::atomic<bool> done{false};
    auto writer = [&](int k) {
        ctx_ptr ctx(dsd_uci_alloc());
        std::string opt = "w" + std::to_string(k);
        for (int i = 1; i <= rounds; ++i) {
            ASSERT_EQ(set_opt_value(ctx.get(), "race", "s", opt.c_str(), std::to_string(i).c_str()), 0);
            int rc = i % 2 ? dummy_commit_package(ctx.get(), "race") : commit_package(ctx.get(), "race");
            ASSERT_EQ(rc, 0);
            ASSERT_EQ(int_option("race", "s", opt.c_str()), i);
            ctx.reset(dsd_uci_alloc()); // a request's context lives for one request
        }
    };
    auto reader = [&] {
        int seen[2] = {0, 0};
        while (!done.load()) {
            for (int k = 0; k < 2; ++k) {
                int v = int_option("race", "s", k ? "w1" : "w0");
                ASSERT_GE(v, seen[k]);
                seen[k] = v;
            }
        }
    };
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r)
        readers.emplace_back(reader);
    std::thread w0(writer, 0), w1(writer, 1);
    w0.join();
    w1.join();
    done.store(true);
    for (auto &t : readers)
        t.join();
    EXPECT_EQ(int_option("race", "s", "w0"), rounds);
    EXPECT_EQ(int_option("race", "s", "w1"), rounds);
}

} // namespace

// A set staged alone keeps the cache current, byte for byte as a fresh read;
// a change log that grew by anything but the set's own lines drops it.
TEST(UciCache, PatchedOnlyByItsOwnChangeLines)
{
    write_package("patch", "config s 'a'\n\toption x '1'\n\tlist l 'p'\nconfig s 'b'\n\toption y '2'\n");
    uci_cache_drop("patch");
    ASSERT_TRUE(uci_cache_open("patch"));
    ctx_ptr ctx(dsd_uci_alloc());
    json_object *req = json_tokener_parse(R"({"x":"it's","l":["q","r"],"z":""})");
    ASSERT_EQ(set_uci_section(ctx.get(), "patch", "a", req), 0);
    json_object_put(req);
    uci_cache_ticket t{};
    ASSERT_TRUE(uci_cache_ticket_take("patch", &t));
    ctx_ptr fresh(dsd_uci_alloc());
    for (const char *name : {"a", "b"})
        EXPECT_EQ(text_of(uci_snapshot_section(*t.snap, name)),
                  text_of(get_uci_section(fresh.get(), "patch", name)));

    // A foreign line of the same length as the expected one.
    uci_ptr ptr{};
    ptr.package = "patch";
    ptr.section = "a";
    ASSERT_EQ(uci_lookup_ptr(fresh.get(), &ptr, nullptr, true), UCI_OK);
    std::ofstream(test_root() + "/tmp/.uci/patch", std::ios::app) << "patch.a.x='2'\n";
    uci_cache_patch(t, "patch", ptr.s, "patch.a.x='3'\n");
    EXPECT_FALSE(uci_cache_ticket_take("patch", &t));
}
