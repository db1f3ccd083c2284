// The task a pool worker runs for one accepted connection.
#pragma once

// Serves the connection fd: takes a context, parses the records, runs the
// method handler, answers and releases the context (which closes fd).
// 0, or -1 when no context was free (fd is then answered -40101 and closed).
// Pool worker thread.
int ds_signal_handle(int fd);
