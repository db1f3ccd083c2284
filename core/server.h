// The listening socket and the accept loop of the main thread.
#pragma once

struct thd_pool;

// Removes a stale socket file and listens on "/tmp/dsd_server.sock" (under
// DSD_ROOT on a host). The descriptor, or -1. Main thread.
int unix_socket_init(void);

// Accepts for ever, queueing each connection on pool; a full queue is
// answered -40109 at once. Returns only when listen_fd < 0. Main thread.
void socket_accept_loop(int listen_fd, thd_pool *pool);
