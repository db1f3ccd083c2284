// uci store benchmark: loading a 128-channel package (512 sections) and
// turning it into JSON, and one set + commit, against the floor of reading
// the same file from disk and splitting it into words.
//
// Usage: uci_bench [iterations]   (prints a table; figures go in docs/uci-store.md)
#include <json-c/json.h>
#include <uci.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "store/store.h"

namespace {

using clock_type = std::chrono::steady_clock;

std::string channel_package(void)
{
    std::string text;
    const char *kinds[] = {"motion", "alarm", "notif", "plan"};
    for (int ch = 1; ch <= 128; ch++) {
        for (const char *kind : kinds) {
            text += "\nconfig " + std::string(kind) + " 'chn" + std::to_string(ch) + "_" + kind + "'\n";
            text += "\toption enable '1'\n\toption sensitivity '5'\n\toption light_alarm_enabled 'off'\n";
            text += "\toption sound_alarm_enabled 'off'\n\toption region '0,0,10000,10000'\n";
            for (int day = 0; day < 7; day++)
                text += "\tlist day" + std::to_string(day) + " '0000-2359:1'\n";
        }
    }
    return text + "\n";
}

// The floor: read the file and split it into whitespace-separated words.
size_t read_and_tokenise(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    size_t words = 0;
    bool in_word = false;
    for (char c : text) {
        bool space = isspace(static_cast<unsigned char>(c));
        words += !space && !in_word;
        in_word = !space;
    }
    return words;
}

template <typename F> double per_call_us(int n, F f)
{
    auto t0 = clock_type::now();
    for (int i = 0; i < n; i++)
        f(i);
    return std::chrono::duration<double, std::micro>(clock_type::now() - t0).count() / n;
}

uci_context *context(const std::string &root)
{
    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, (root + "/config").c_str());
    uci_set_savedir(ctx, (root + "/save").c_str());
    return ctx;
}

} // namespace

int main(int argc, char **argv)
{
    int n = argc > 1 ? atoi(argv[1]) : 200;
    if (n < 1)
        n = 1;
    char tmpl[] = "/tmp/uci-bench-XXXXXX";
    std::string root = mkdtemp(tmpl);
    std::string mk = "mkdir -p " + root + "/config " + root + "/save";
    if (system(mk.c_str()) != 0)
        return 1;
    std::ofstream(root + "/config/chan") << channel_package();

    volatile size_t sink = 0;
    double floor_us = per_call_us(n, [&](int) { sink = sink + read_and_tokenise(root + "/config/chan"); });
    double load_us = per_call_us(n, [&](int) {
        uci_context *ctx = context(root);
        uci_package *p = nullptr;
        sink = sink + (uci_load(ctx, "chan", &p) == UCI_OK);
        uci_free_context(ctx);
    });
    double json_us = per_call_us(n, [&](int) {
        uci_context *ctx = context(root);
        json_object *obj = get_uci_package(ctx, "chan");
        sink = sink + json_object_object_length(obj);
        json_object_put(obj);
        uci_free_context(ctx);
    });
    double commit_us = per_call_us(n, [&](int i) {
        uci_context *ctx = context(root);
        {
            store_txn txn(ctx);
            set_opt_value(&txn, "chan", "chn3_motion", "sensitivity", (i & 1) ? "4" : "6");
            store_txn_commit(&txn, "chan", false);
        }
        uci_free_context(ctx);
    });

    printf("128-channel package, 512 sections, %d iterations\n", n);
    printf("%-36s %10.1f us\n", "read + tokenise (floor)", floor_us);
    printf("%-36s %10.1f us  (%.1fx floor)\n", "uci_load", load_us, load_us / floor_us);
    printf("%-36s %10.1f us  (%.1fx floor)\n", "uci_load + package to JSON", json_us, json_us / floor_us);
    printf("%-36s %10.1f us\n", "set one option + commit (fsync)", commit_us);
    std::string rm = "rm -rf " + root;
    return system(rm.c_str()) == 0 ? 0 : 1;
}
