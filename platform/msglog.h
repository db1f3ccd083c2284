// Operation log: the user-visible event log kept by the log service.
#pragma once

#include <cstdint>

// Free-text record ("%s\r\n"); main type <= 5, sub type <= 28. 0 or -1.
int dsd_msglog(uint32_t main_type, uint32_t sub_type, const char *text);
// Record with user name and client address; main type <= 4, sub type <= 33. 0 or -1.
int dsd_msglog_with_user(uint32_t main_type, uint32_t sub_type, const char *detail,
                         const char *user);
// Waits delay_ms, then asks "msglog_v2" to flush. 0, -70101 or -70102.
int dsd_sync(int delay_ms);
// The requesting client's address from the shared-memory block.
const char *get_client_ip(void);

// The platform log library's entry point (host implementation in this project).
extern "C" int msglog_write_log(uint32_t main_type, uint32_t sub_type, const char *text);
