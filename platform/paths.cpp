#include "platform/paths.h"

#include <cstdlib>

const std::string &dsd_root(void)
{
    // Never destroyed: detached threads (the event sender) may still resolve
    // paths while exit handlers run.
    static const std::string &root = *new std::string([] {
        const char *env = getenv("DSD_ROOT");
        std::string r = env ? env : "";
        while (r.size() > 1 && r.back() == '/')
            r.pop_back();
        return r;
    }());
    return root;
}

std::string dsd_path(const char *path)
{
    if (!path)
        return std::string();
    if (path[0] != '/' || dsd_root().empty())
        return std::string(path);
    return dsd_root() + path;
}
