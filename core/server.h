// The listening Unix socket and the accept loop of the main thread.
#pragma once

struct thd_pool;

// Removes a stale socket file and listens on dsd_path("/tmp/dsd_server.sock").
// The listening descriptor, or -1. Main thread.
int unix_socket_init(void);

// Accepts for ever, queueing one ds_signal_handle task per connection on pool;
// a connection that cannot be queued is answered -40109 and closed.
// Returns only when listen_fd < 0. Main thread.
void socket_accept_loop(int listen_fd, thd_pool *pool);
