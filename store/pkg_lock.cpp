#include "store/pkg_lock.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/trace.h"

namespace {

// Which packages are taken, process-wide. An entry exists while a thread
// holds the package; waiters sleep on the one condition variable (packages
// are few and contention short, so a broadcast costs little).
std::mutex g_table_lock;
std::condition_variable g_released;
std::set<std::string> g_taken;

// The packages this thread holds, in the order it took them.
thread_local std::vector<std::string> t_held;

bool held_here(const std::string &name)
{
    for (const std::string &h : t_held) {
        if (h == name)
            return true;
    }
    return false;
}

} // namespace

int pkg_lock(const char *package)
{
    if (!package || !*package) {
        DS_ERR("Invalid params.");
        return -1;
    }
    std::string name(package);
    if (held_here(name))
        return 0;
    std::unique_lock<std::mutex> table(g_table_lock);
    auto free_now = [&] { return g_taken.find(name) == g_taken.end(); };
    if (t_held.empty()) {
        g_released.wait(table, free_now);
    } else if (!g_released.wait_for(table, std::chrono::milliseconds(PKG_LOCK_NESTED_WAIT_MS),
                                    free_now)) {
        DS_ERR("package %s busy, holding %s", package, t_held.back().c_str());
        return -1;
    }
    g_taken.insert(name);
    t_held.push_back(name);
    return 0;
}

int pkg_trylock(const char *package)
{
    if (!package || !*package)
        return -1;
    std::string name(package);
    if (held_here(name))
        return 0;
    std::lock_guard<std::mutex> table(g_table_lock);
    if (g_taken.find(name) != g_taken.end())
        return -1;
    g_taken.insert(name);
    t_held.push_back(name);
    return 0;
}

bool pkg_lock_held(const char *package)
{
    return package && held_here(package);
}

size_t pkg_lock_mark(void)
{
    return t_held.size();
}

void pkg_unlock_to(size_t mark)
{
    if (t_held.size() <= mark)
        return;
    {
        std::lock_guard<std::mutex> table(g_table_lock);
        while (t_held.size() > mark) {
            g_taken.erase(t_held.back());
            t_held.pop_back();
        }
    }
    g_released.notify_all();
}
