// The WAN's address as the checks see it.
#include <string>

#include "core/context.h"
#include "modules/network/network.h"
#include "platform/uci_access.h"

std::string net_wan_ipaddr(ds_context *ctx)
{
    if (!ctx || !ctx->uci_ctx)
        return std::string();
    const char *type = get_opt_value(ctx->uci_ctx, "protocol", "wan", "wan_type");
    if (!type || std::string(type) != "static")
        return std::string();
    const char *addr = get_opt_value(ctx->uci_ctx, "protocol", "static", "ipaddr");
    return addr ? std::string(addr) : std::string();
}
