// Operation log: user-visible records handed to the log library, and the
// flush request to the log service.
#include "platform/msglog.h"

#include <json-c/json.h>
#include <sys/select.h>

#include <cstdio>
#include <memory>

#include "platform/shm.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

namespace {

// The log viewer's limit: records are cut to 1023 bytes plus the NUL.
enum { LOG_BUF_SIZE = 1024 };

// Type limits of the two entry points differ on purpose: free-text records
// are the older interface with the narrower range.
enum { FREE_MAX_MAIN = 5, FREE_MAX_SUB = 28, USER_MAX_MAIN = 4, USER_MAX_SUB = 33 };

struct conn_free {
    void operator()(ubus_context *c) const { ubus_free_connection(c); }
};

} // namespace

static const char *or_null(const char *s)
{
    return s ? s : "(null)";
}

// Free-text record "<text>\r\n" cut to 1023 bytes. 0, or -1 for a main type
// above 5 or a sub type above 28. Any worker thread.
int dsd_msglog(uint32_t main_type, uint32_t sub_type, const char *text)
{
    if (main_type > FREE_MAX_MAIN) {
        DS_ERR("wrong main_type");
        return -1;
    }
    if (sub_type > FREE_MAX_SUB) {
        DS_ERR("wrong sub_type");
        return -1;
    }
    // A null text is passed to the library as is and then logged as "(null)":
    // the log service has always received both records.
    if (!text)
        msglog_write_log(main_type, sub_type, nullptr);
    char buf[LOG_BUF_SIZE] = {0};
    snprintf(buf, sizeof buf, "%s\r\n", or_null(text));
    DS_ERR("log_param is %s", buf);
    msglog_write_log(main_type, sub_type, buf);
    return 0;
}

// Record naming the user and the client address, with an optional detail
// line, cut to 1023 bytes. 0, or -1 for a main type above 4 or a sub type
// above 33. Any worker thread.
int dsd_msglog_with_user(uint32_t main_type, uint32_t sub_type, const char *detail,
                         const char *user)
{
    DS_INFO("web_user_name is %s", or_null(user));
    if (main_type > USER_MAX_MAIN) {
        DS_ERR("wrong main_type");
        return -1;
    }
    if (sub_type > USER_MAX_SUB) {
        DS_ERR("wrong sub_type");
        return -1;
    }
    char buf[LOG_BUF_SIZE] = {0};
    if (detail)
        snprintf(buf, sizeof buf, "用户名: %s\r\nIP地址: %s\r\n%s\r\n", or_null(user),
                 get_client_ip(), detail);
    else
        snprintf(buf, sizeof buf, "用户名: %s\r\nIP地址: %s\r\n", or_null(user), get_client_ip());
    DS_INFO("log param is: %s", buf);
    msglog_write_log(main_type, sub_type, buf);
    return 0;
}

// Waits delay_ms, then asks "msglog_v2" to store what it holds. 0, -70101
// (no bus) or -70102 (call failed). Blocks the calling worker.
int dsd_sync(int delay_ms)
{
    std::unique_ptr<ubus_context, conn_free> conn(ubus_create_connection());
    if (!conn) {
        DS_ERR("ubus create connection fail");
        return -70101;
    }
    long us = delay_ms > 0 ? (long)delay_ms * 1000 : 0;
    struct timeval tv = {.tv_sec = us / 1000000, .tv_usec = us % 1000000};
    select(0, nullptr, nullptr, nullptr, &tv);
    ubus_req req = {.object = "msglog_v2", .method = "msglog_sync", .message = "{}", .timeout = 0};
    json_object *reply = nullptr;
    int rc = ubus_call(conn.get(), &req, &reply);
    json_object_put(reply);
    if (rc != 0) {
        DS_ERR("ubus call msglog_v2 msglog_sync fail");
        return -70102;
    }
    return 0;
}

// The requesting client's address text ("" without the shared block);
// borrowed, valid until this thread's next call. Any thread.
const char *get_client_ip(void)
{
    return dsd_shm_client_ip();
}
