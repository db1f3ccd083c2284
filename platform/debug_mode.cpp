#include <uci.h>

#include <cstdio>
#include <cstdlib>

#include "platform/paths.h"
#include "platform/trace.h"

namespace {
// Written once by the main thread before any worker starts.
int g_debug_mode = 0;

int read_debug_mode(void)
{
    // Read once at start-up, before the store is used: libuci directly, on
    // this process's directories (under DSD_ROOT on a host).
    uci_context *ctx = uci_alloc_context();
    if (!ctx)
        return 0;
    if (!dsd_root().empty()) {
        uci_set_confdir(ctx, dsd_path("/etc/config").c_str());
        uci_set_savedir(ctx, dsd_path("/tmp/.uci").c_str());
    }
    uci_ptr ptr{};
    ptr.package = "system";
    ptr.section = "sys";
    ptr.option = "debug_mode";
    int mode = 0;
    if (uci_lookup_ptr(ctx, &ptr, nullptr, true) == UCI_OK &&
        (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) && ptr.o && ptr.o->type == UCI_TYPE_STRING &&
        ptr.o->v.string)
        mode = atoi(ptr.o->v.string);
    uci_free_context(ctx);
    return mode;
}
} // namespace

void load_debug_mode(void)
{
    g_debug_mode = read_debug_mode();
    printf("dsd load debug mode is %d\n", g_debug_mode);
}

int get_debug_mode(void)
{
    return g_debug_mode;
}
