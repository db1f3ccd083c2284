#include "core/shm.h"

#include "platform/paths.h"
#include "platform/trace.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <cstring>

enum { SHM_SIZE = 80, SHM_IP_OFFSET = 64, SHM_IP_LEN = 16, SHM_PROJECT_ID = 54 };
enum { SHM_CREATE_FLAGS = 0x200 }; // IPC_CREAT, no permission bits

// Attached once at start-up on the main thread, before any worker runs, and
// only read afterwards.
static char *g_shm;
// Process-local status record; the first word is written by the channel
// manager from worker threads, hence atomic.
static std::atomic<int32_t> g_status_word;
static int32_t g_status_rest[4];

void dsd_shm_init(void)
{
    key_t key = ftok(dsd_path("/usr/bin/dsd").c_str(), SHM_PROJECT_ID);
    if (key <= 0) {
        DS_ERR("shm id error\n");
    } else {
        int id = shmget(key, SHM_SIZE, SHM_CREATE_FLAGS);
        if (id < 0) {
            DS_ERR("shmget failed, errno %d\n", errno);
        } else {
            void *addr = shmat(id, nullptr, 0);
            // Without the owner's rights (a non-root host run) the attach
            // fails; the block then reads as absent.
            g_shm = addr == reinterpret_cast<void *>(-1) ? nullptr : static_cast<char *>(addr);
        }
    }
    memset(g_status_rest, 0, sizeof(g_status_rest));
    g_status_word.store(1);
}

const char *dsd_shm_client_ip(void)
{
    if (!g_shm)
        return "";
    // Written by other processes: never trust it to be terminated.
    if (!memchr(g_shm + SHM_IP_OFFSET, 0, SHM_IP_LEN))
        return "";
    return g_shm + SHM_IP_OFFSET;
}

void dsd_shm_set_status(int value)
{
    g_status_word.store(value);
}
