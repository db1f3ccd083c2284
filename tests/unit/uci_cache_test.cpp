// Views in-process: after every kind of change they answer what a fresh
// libuci load gives, byte for byte; the cache stays within its size; and
// with writers on several threads no reader goes back in time and every
// writer reads its own write.
#include "store/store.h"
#include "model_test_util.h"
#include "uci_test_util.h"

namespace {

model_scratch_root scratch;

void write_package(const std::string &name, const std::string &text)
{
    scratch.write(name, text);
}

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

// The package as libuci itself loads it now, in the form views answer:
// the reference every view is held to.
json_object *fresh_section(uci_section *s)
{
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, ".name", json_object_new_string(s->e.name));
    json_object_object_add(obj, ".type", json_object_new_string(s->type));
    uci_element *e;
    uci_foreach_element(&s->options, e) {
        uci_option *o = uci_to_option(e);
        if (o->type == UCI_TYPE_STRING) {
            json_object_object_add(obj, e->name, json_object_new_string(o->v.string));
            continue;
        }
        json_object *arr = json_object_new_array();
        uci_element *v;
        uci_foreach_element(&o->v.list, v) json_object_array_add(arr, json_object_new_string(v->name));
        json_object_object_add(obj, e->name, arr);
    }
    return obj;
}

// Every section of `package` through a view (the cache's, or its parse)
// against a fresh load; the count as well.
void expect_views_agree(const char *package, const std::string &step)
{
    ctx_ptr ctx(dsd_uci_alloc());
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx.get(), package, &p), UCI_OK) << step;
    uci_snapshot_ref view = store_view(nullptr, package);
    ASSERT_TRUE(view) << step;
    size_t n = 0;
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        std::string want = text_of(fresh_section(uci_to_section(e)));
        EXPECT_EQ(text_of(uci_snapshot_section(*view, e->name)), want) << step << ": " << e->name;
        EXPECT_EQ(text_of(uci_snapshot_section_text(*view, e->name)), want) << step << ": " << e->name;
        n++;
    }
    EXPECT_EQ(uci_snapshot_section_count(*view), n) << step;
}

TEST(UciView, AgreesWithAFreshParseAfterEveryKindOfChange)
{
    write_package("pkg", kEditPackage + std::string("config b\n\toption y \"it's\"\n"));
    expect_views_agree("pkg", "start");
    int round = 0;
    for (const edit_row *c = kEdits; c->name; c++, round++) {
        ctx_ptr ctx(dsd_uci_alloc());
        store_txn t(ctx.get());
        ASSERT_EQ(c->apply(&t), 0) << c->name;
        expect_views_agree("pkg", std::string(c->name) + ", staged");
        ASSERT_EQ(store_txn_commit(&t, "pkg", round % 2 == 0), 0) << c->name;
        expect_views_agree("pkg", std::string(c->name) + ", committed");
    }
    // Another uci client's change, and an edit of the file behind the
    // store's back: seen through the files' identity.
    ctx_ptr other(dsd_uci_alloc());
    std::string tuple = "pkg.T_2.foreign=yes";
    uci_ptr ptr{};
    ASSERT_EQ(uci_lookup_ptr(other.get(), &ptr, tuple.data(), true), UCI_OK);
    ASSERT_EQ(uci_set(other.get(), &ptr), UCI_OK);
    ASSERT_EQ(uci_save(other.get(), ptr.p), UCI_OK);
    expect_views_agree("pkg", "foreign change");
    std::ofstream(scratch.conf("pkg"), std::ios::app) << "config T 'edited'\n";
    expect_views_agree("pkg", "file edited");
    EXPECT_FALSE(store_view(nullptr, "no_such_package"));
    EXPECT_FALSE(store_view(nullptr, "../etc/config/forms"));
    uci_snapshot_ref view = store_view(nullptr, "pkg");
    ASSERT_TRUE(view);
    EXPECT_EQ(uci_snapshot_section(*view, "missing"), nullptr);
    EXPECT_STREQ(store_view_option(*view, "T_2", "foreign"), "yes");
    EXPECT_EQ(text_of(store_view_type_names(*view, "T")), R"([ "T_9", "T_2", "edited" ])");
}

TEST(UciCache, StaysWithinItsSize)
{
    std::string big;
    for (int i = 0; i < 4000; ++i)
        big += "config s 's" + std::to_string(i) + "'\n\toption value '" + std::string(40, 'x') + "'\n";
    for (int p = 0; p < 8; ++p)
        write_package("big" + std::to_string(p), big);
    // Files written by another program are kept once they are older than
    // the clock can tell apart.
    usleep(100 * 1000);
    for (int p = 0; p < 8; ++p) {
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
            {
                store_txn t(ctx.get());
                ASSERT_EQ(set_opt_value(&t, "race", "s", opt.c_str(), std::to_string(i).c_str()), 0);
                ASSERT_EQ(store_txn_commit(&t, "race", i % 2 != 0), 0);
            }
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
