// Host subset of libubox's event loop, enough for a bus client that only
// listens: run until uloop_end or a signal (SIGINT, SIGTERM). The
// loop itself lives with the host libubus (compat/ubus), the only source of
// events on a host.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

extern bool uloop_cancelled;

int uloop_init(void);
// Runs until uloop_end or SIGINT/SIGTERM (taken only while at their default
// disposition, as on the device); the signal's number, or 0.
int uloop_run(void);
void uloop_done(void);

static inline void uloop_end(void)
{
    uloop_cancelled = true;
}

#ifdef __cplusplus
}
#endif
