// Written only against libuci's public interface, so it behaves the same on
// the device's library and on the host's.
#include "platform/uci_dummy.h"

#include <sys/stat.h>
#include <uci.h>

#include <ctime>
#include <string>

namespace {

bool flash_copy_due(const uci_context *ctx, const uci_package *p)
{
    struct stat log, file;
    std::string log_path = std::string(ctx->savedir) + "/" + p->e.name;
    if (stat(log_path.c_str(), &log) != 0 || log.st_size == 0)
        return false;
    if (log.st_size >= UCI_DUMMY_FLUSH_BYTES)
        return true;
    std::string path = p->path ? p->path : std::string(ctx->confdir) + "/" + p->e.name;
    if (stat(path.c_str(), &file) != 0)
        return true;
    return time(nullptr) - file.st_mtime >= UCI_DUMMY_FLUSH_AGE;
}

} // namespace

int uci_dummy_commit(uci_context *ctx, uci_package **p, bool overwrite)
{
    if (!ctx || !p || !*p)
        return UCI_ERR_INVAL;
    int rc = uci_save(ctx, *p);
    if (rc != UCI_OK)
        return rc;
    if (!flash_copy_due(ctx, *p))
        return UCI_OK;
    return uci_commit(ctx, p, overwrite);
}
