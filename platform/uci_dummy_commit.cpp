// Written only against libuci's public interface, so it behaves the same on
// the device's library and on the host's.
#include "platform/uci_dummy.h"

#include <uci.h>

int uci_dummy_commit(uci_context *ctx, uci_package **p, bool)
{
    if (!ctx || !p || !*p)
        return UCI_ERR_INVAL;
    return uci_save(ctx, *p);
}
