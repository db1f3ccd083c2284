// The "ubus call" command line on a host: `hostbus call <object> <method>
// [message]`, or the hostbus binary reached through a link named "ubus".
// It talks to the broker like any bus client, so the call is logged.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "hostbus.h"

static void print_reply(ubus_request *req, int type, blob_attr *msg)
{
    (void)req;
    (void)type;
    char *text = blobmsg_format_json(msg, true);
    if (text)
        printf("%s\n", text);
    free(text);
}

int hb_cli_main(int argc, char **argv)
{
    if (argc < 3 || strcmp(argv[0], "call") != 0) {
        fprintf(stderr, "usage: ubus call <object> <method> [message]\n");
        return 2;
    }
    const char *root = getenv("DSD_ROOT");
    std::string sock = std::string(root ? root : "") + "/var/run/ubus.sock";
    ubus_context *ctx = ubus_connect(sock.c_str());
    if (!ctx) {
        fprintf(stderr, "Failed to connect to ubus\n");
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    blob_buf b;
    memset(&b, 0, sizeof b);
    blob_buf_init(&b, 0);
    uint32_t id = 0;
    int rc = UBUS_STATUS_PARSE_ERROR;
    if (argc > 3 && !blobmsg_add_json_from_string(&b, argv[3]))
        fprintf(stderr, "Failed to parse message data\n");
    else if ((rc = ubus_lookup_id(ctx, argv[1], &id)) == 0)
        rc = ubus_invoke(ctx, id, argv[2], b.head, print_reply, nullptr, 30000);
    if (rc != 0)
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(rc));
    blob_buf_free(&b);
    ubus_free(ctx);
    return rc;
}
