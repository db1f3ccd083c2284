#include "platform/shm.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/paths.h"
#include "platform/trace.h"

namespace {

enum { SHM_SIZE = 80, SHM_CLIENT_IP_OFFSET = 64, SHM_CLIENT_IP_LEN = 16, SHM_PROJECT_ID = 54 };

// Set once at start-up, before any worker runs; read-only afterwards.
char *g_shm = nullptr;

// Process-local status record; the first word is written by the channel
// manager's handlers on any worker, hence atomic.
struct shm_status {
    std::atomic<int32_t> word;
    uint8_t rest[16];
};
shm_status g_status;

} // namespace

void dsd_shm_init(void)
{
    key_t key = ftok(dsd_path("/usr/bin/dsd").c_str(), SHM_PROJECT_ID);
    if (key <= 0) {
        DS_ERR("shm id error\n");
    } else {
        int id = shmget(key, SHM_SIZE, IPC_CREAT); // permission bits 0, as the device expects
        if (id < 0) {
            DS_ERR("shmget failed, errno %d\n", errno);
        } else {
            void *addr = shmat(id, nullptr, 0);
            g_shm = addr == reinterpret_cast<void *>(-1) ? nullptr : static_cast<char *>(addr);
        }
    }
    memset(g_status.rest, 0, sizeof g_status.rest);
    g_status.word.store(1);
}

const char *dsd_shm_client_ip(void)
{
    if (!g_shm)
        return "";
    // Other processes write this field; never trust it to be terminated.
    thread_local char copy[SHM_CLIENT_IP_LEN + 1];
    memcpy(copy, g_shm + SHM_CLIENT_IP_OFFSET, SHM_CLIENT_IP_LEN);
    copy[SHM_CLIENT_IP_LEN] = 0;
    return copy;
}
