// The small System V shared-memory block other processes of the device write
// the requesting client's address into.
#pragma once

// Attaches (creating when absent) the 80-byte block keyed by ftok("/usr/bin/dsd", 54)
// and resets the process-local status record. Start-up only; never fails the start.
void dsd_shm_init(void);
// The NUL-terminated client address text at offset 64 of the block, or "" when
// the block is not attached. Borrowed; any thread.
const char *dsd_shm_client_ip(void);
