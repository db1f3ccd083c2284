// Orderly stop on SIGTERM (and SIGINT): the daemon's stop work runs (the
// change logs are flushed into the configuration files), then the process
// exits 0.
//
// The handler only writes a byte to a pipe; a dedicated thread does the
// flush. libubus's ubus_connect (through uloop_init) replaces the handlers
// with its own, which only set a flag the daemon never reads, so every
// connect is followed by stop_signal_restore.
#pragma once

// Installs the handlers and starts the stop thread, which calls `on_stop`
// (may be null) on the first signal and exits. 0, or -1 with a trace.
// Main thread, once, before the workers start.
int stop_signal_init(void (*on_stop)(void));

// Puts the daemon's handlers back (after a library replaced them). No-op
// before stop_signal_init. Any thread.
void stop_signal_restore(void);
