// Host subset of OpenWrt's libubus: connect, look an object up, invoke a
// method synchronously, send events and listen for them. Names and signatures match the real library; the
// host library talks to tools/hostbus over a Unix socket instead of ubusd.
#pragma once

#include <stdint.h>

#include <libubox/blobmsg.h>

#ifdef __cplusplus
extern "C" {
#endif

enum ubus_msg_status {
    UBUS_STATUS_OK,
    UBUS_STATUS_INVALID_COMMAND,
    UBUS_STATUS_INVALID_ARGUMENT,
    UBUS_STATUS_METHOD_NOT_FOUND,
    UBUS_STATUS_NOT_FOUND,
    UBUS_STATUS_NO_DATA,
    UBUS_STATUS_PERMISSION_DENIED,
    UBUS_STATUS_TIMEOUT,
    UBUS_STATUS_NOT_SUPPORTED,
    UBUS_STATUS_UNKNOWN_ERROR,
    UBUS_STATUS_CONNECTION_FAILED,
    UBUS_STATUS_NO_MEMORY,
    UBUS_STATUS_PARSE_ERROR,
    UBUS_STATUS_SYSTEM_ERROR,
    __UBUS_STATUS_LAST
};

// Message type handed to data callbacks.
enum { UBUS_MSG_DATA = 2 };

// The host library keeps its own state behind this; of the device's fields
// only the connection-lost callback is here. As on the device it is called
// when the bus hangs up on a connection in uloop_run, and the default one
// does not end the loop (the hung-up socket has left the loop already by
// then on the device too): a client that must notice sets its own.
struct ubus_context {
    void (*connection_lost)(struct ubus_context *ctx);
};
struct ubus_request;

typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type,
                                    struct blob_attr *msg);
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);

struct ubus_event_handler;
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);

// Only what a listener fills in or reads; the device's has more fields.
struct ubus_object {
    const char *name;
    uint32_t id;
};

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_request {
    int status_code;
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t data_cb;
    ubus_complete_handler_t complete_cb;
    struct ubus_context *ctx;
    void *priv;
};

// Connects to the bus socket at path (NULL: "/var/run/ubus/ubus.sock"). NULL on failure.
struct ubus_context *ubus_connect(const char *path);
// Closes and frees ctx. NULL is ignored.
void ubus_free(struct ubus_context *ctx);
// 0 and *id, or a status (UBUS_STATUS_NOT_FOUND for a missing object).
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);
// Synchronous call: cb runs once per reply message (msg valid only during the
// call, req->priv == priv). The method's status, or UBUS_STATUS_TIMEOUT after
// timeout ms (0 waits for ever).
int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method,
                struct blob_attr *msg, ubus_data_handler_t cb, void *priv, int timeout);
const char *ubus_strerror(int error);

// Sends event `id` with the message to every listener whose pattern matches.
// The bus's status (0 also when nobody listens).
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);
// Listens for events matching pattern (a name, or a prefix ending in '*');
// ev->cb runs from uloop_run. 0 or a status.
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                const char *pattern);
// Stops ev's listening (the connection stays up). 0 or a status.
int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev);
// Lets uloop_run deliver ctx's events; a lost connection leaves the loop
// and calls ctx->connection_lost.
void ubus_add_uloop(struct ubus_context *ctx);

#ifdef __cplusplus
}
#endif
